// The reports of kestan-monitor on a stream with faults.

#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/support/cases.h"
#include "tests/support/memory_file.h"
#include "tests/support/packets.h"
#include "tests/support/sections.h"
#include "tools/json/number_text.h"
#include "tools/json/shown_text.h"
#include "tools/kestan-monitor/measure/series.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_report.h"
#include "tools/kestan-monitor/screen/terminal_view.h"
#include "tools/receive/packet_recorder.h"

namespace {

using testing::EndsWith, testing::HasSubstr, testing::Not, testing::StartsWith;

constexpr std::uint16_t kPmtPid = 0x0100;
constexpr std::uint16_t kVideoPid = 0x0200;
constexpr std::int64_t kCivil = 1781525100 * kNsPerSecond;  // 2026-06-15 12:05:00 UTC

struct Stream {
    Stream() {
        statistics.set_civil_clock(kCivil, std::nullopt);
        statistics.keep_series();
    }

    // Returns the packets of a section: its hexadecimal digits but for length and CRC_32.
    std::string packets(std::uint16_t pid, const char* hex) {
        return section_packets({sealed(*from_hex(hex))}, pid, counters[pid]);
    }

    void send(std::int64_t ms, const std::string& datagram) {
        statistics.push(ms * kNsPerMs, bytes_of(datagram), datagram.size());
    }

    [[nodiscard]] Report report() const {
        return {"226.0.0.10:1234", statistics, RateMeter().measure(statistics)};
    }

    StreamStatistics statistics{0};
    std::map<std::uint16_t, int> counters;
};

// Two seconds: tables every 200 ms for 400 ms, then nothing. On the way come a PMT that
// the PAT does not announce, a section with a wrong CRC_32, two packets of a video with
// one missing between them and an error, and a malformed datagram; 3 are lost.
struct FaultyStream : Stream {
    FaultyStream() {
        const char* const pat = "00 b000 0000 c1 0000 0007 e100";
        // Service 7 is "<A>", U+202E, " & B" in UTF-8.
        send(0, packets(kSdtPid,
                        "42 f000 0000 c1 0000 0000 ff 0007 fc 0010 480e 01 00 0b "
                        "15 3c413e e280ae 20262042"));
        for (const int ms : {0, 200, 400}) {
            send(ms, packets(kPatPid, pat) +
                         packets(kPmtPid, "02 b000 0007 c1 0000 ffff f000"));
        }
        send(400, packets(0x0110, "02 b000 0009 c1 0000 ffff f000"));
        send(400, with_bits(packets(kPatPid, pat), 9, 1));
        send(400, ts_packet(kVideoPid, 0) + with_error(ts_packet(kVideoPid, 2)));
        send(400, "no packets");
        statistics.advance(kNsPerSecond, 3);
        statistics.finish(2 * kNsPerSecond, 3);
    }
};

TEST(MonitorReport, TellsProgramsWhatIsWrongWithAStream) {
    const FaultyStream stream;
    const auto json = nlohmann::json::parse(json_report(stream.report()));
    EXPECT_EQ(json["lost_datagrams"], 3);
    EXPECT_EQ(json["malformed_datagrams"], 1);
    EXPECT_EQ(json["bit_rate"], 11 * 1504 / 2.0);
    const auto& pat = json["pids"][0];
    EXPECT_EQ(pat["crc_errors"], 1);
    EXPECT_EQ(pat["tables"][0]["repetition_ms"]["max"], 200);
    EXPECT_EQ(pat["tables"][0]["longest_ms"], 1600) << "the wait that lasts";
    EXPECT_EQ(json["pids"].back()["pid"], kVideoPid);
    EXPECT_EQ(json["pids"].back()["transport_errors"], 1);
}

TEST(MonitorReport, GivesTheMetricsOfAStream) {
    const FaultyStream stream;
    const std::string metrics = metrics_text(stream.report());
    EXPECT_THAT(metrics,
                StartsWith("# HELP kestan_monitor_up 1 while datagrams come.\n"
                           "# TYPE kestan_monitor_up gauge\nkestan_monitor_up{"));
    EXPECT_THAT(metrics, EndsWith("\n# EOF\n"));
    for (const auto& [sample, expected] : cases_in("metrics.txt")) {
        std::string name = "\nkestan_monitor_" + sample + ' ';
        name.replace(name.find('S'), 1, "stream=\"226.0.0.10:1234\"");
        const std::size_t at = metrics.find(name);
        const std::string rest =
            at == std::string::npos ? "none\n" : metrics.substr(at + name.size());
        EXPECT_EQ(rest.substr(0, rest.find('\n')), expected) << sample;
    }
}

TEST(MonitorReport, TellsPeopleWhatIsWrongWithAStream) {
    const FaultyStream stream;
    const std::string text = text_report(stream.report());
    EXPECT_THAT(text, HasSubstr("\n  bit rate   8.3 kbit/s; at most "));
    EXPECT_THAT(text, HasSubstr("; 1 malformed, 3 lost here\n"));
    EXPECT_THAT(text,
                HasSubstr("\n0x0000  PAT                            4     3.0   0   1"));
    EXPECT_THAT(text, HasSubstr("\n0x0100  PMT 7 <A> & B "));
    EXPECT_THAT(text, HasSubstr("\n0x0110  PMT 9 (not in PAT) "));
    EXPECT_THAT(text, HasSubstr(" PID 0x0000: PAT: a section was away for 1600.0 ms, at "
                                "most 500.0 ms are allowed (ETSI TR 101 290, 1.3.a)\n"));
}

TEST(MonitorReport, DrawsAnyNameAndTheRateOfALongRun) {
    FaultyStream stream;
    stream.send(61000, ts_packet(kVideoPid, 3));
    const std::string svg = plot_svg(stream.report());
    EXPECT_THAT(svg, HasSubstr(">&lt;A> &amp; B</text>"));
    EXPECT_THAT(svg, Not(HasSubstr("<A>")));
    EXPECT_THAT(svg, HasSubstr("kbit/s, over 200 ms each"));
}

TEST(TimeSeries, MergesItsBinsWhenTheyDoNotReachFarEnough) {
    TimeSeries series;
    for (int i = 0; i < 1300; ++i) series.add(i * 100 * kNsPerMs, i);
    EXPECT_EQ(series.bin_width(), 400 * kNsPerMs);
    ASSERT_EQ(series.bins().size(), 325u);
    std::int64_t first = 0;
    for (const Spread& bin : series.bins()) {
        ASSERT_EQ(bin.count, 4u);
        ASSERT_EQ(bin.least, first);
        ASSERT_EQ(bin.greatest, first + 3);
        first += 4;
    }
    EXPECT_FALSE(series.has_all_points());
}

TEST(FaultLog, KeepsFirstAndLastTimesAndTheLastTenEvents) {
    FaultLog log;
    log.set_civil_minus_steady(kCivil);
    for (int i = 0; i < 12; ++i)
        log.add({FaultKind::kCrc, static_cast<std::uint16_t>(i % 6)}, i, i % 5);
    log.add({FaultKind::kLost}, 12, 0, 3);
    EXPECT_EQ(log.all().total, 15u);
    EXPECT_EQ(log.all(FaultKind::kLost).total, 3u);
    const auto& [count, first, last, worst] = log.records().at({FaultKind::kCrc, 4});
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(first, kCivil + 4);
    EXPECT_EQ(last, kCivil + 10);
    EXPECT_EQ(worst, 4);
    ASSERT_EQ(log.last_events().size(), 10u);
    EXPECT_EQ(log.last_events().front().time, kCivil + 3);
}

TEST(TerminalView, ScrollsByPagesAndNotBehindTheEnd) {
    Stream stream;
    for (std::uint16_t pid = 0x0300; pid < 0x0340; ++pid)
        stream.send(0, ts_packet(pid, 0));
    TerminalView view(false);
    const auto shown = [&] {
        std::vector<int> pids;
        for (const std::string& line : view.lay_out(stream.report(), {20, 80}))
            if (line.compare(0, 2, "0x") == 0)
                pids.push_back(std::stoi(line, nullptr, 16));
        return pids;
    };
    const std::vector<int> first = shown();
    view.on_key(Key::kPageDown);
    EXPECT_EQ(shown().front(), first.back() + 1);
    view.on_key(Key::kPageUp);
    EXPECT_EQ(shown(), first);
    for (int i = 0; i < 20; ++i) view.on_key(Key::kPageDown);
    EXPECT_EQ(shown().back(), 0x033F);
    EXPECT_EQ(shown().size(), first.size());
}

TEST(MonitorReport, MakesOneEventOfTheContinuityErrorsOfOneGap) {
    FaultLog faults;
    const auto lose = [&](std::int64_t ms, std::uint16_t pids) {
        for (std::uint16_t pid = 1; pid <= pids; ++pid)
            faults.add({FaultKind::kContinuity, pid}, ms * kNsPerMs, 0, 3);
    };
    lose(0, 40);
    faults.add({FaultKind::kNoSyncByte}, 500 * kNsPerMs);
    lose(900, 40);
    lose(1900, 1);
    const Lines lines = event_lines(faults);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], HasSubstr("  PID 0x0001: continuity errors (ETSI"));
    EXPECT_THAT(lines[1], HasSubstr("  continuity: 40 PIDs, 240 errors (ETSI"));
    EXPECT_THAT(lines[2], HasSubstr("sync byte"));
    EXPECT_EQ(faults.count({FaultKind::kContinuity, 40}), 6u);
}

TEST(ShownText, KeepsTextFromActingOnItsNeighbours) {
    const std::string marks = "\u0301\u0301\u0301\u0301";
    const std::pair<std::string, std::string> cases[] = {
        {"Zoë 東京 \U0001F4FA", "Zoë 東京 \U0001F4FA"},
        {"a\u202Eb\u2066c\u2069", "abc"},
        {"a\uFFFEb\uFFFF", "a\uFFFDb\uFFFD"},
        {"\x1B[31m\u009B", "\uFFFD[31m\uFFFD"},
        {"e" + marks + marks + "e" + marks, "e" + marks + "e" + marks},
        {"\xC3(\xED\xA0\x80\xF0\x9F", "\uFFFD(\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(shown_text(text), shown);
    EXPECT_EQ(shown_path("/tmp/Zoë"), "/tmp/Zoë");
}

TEST(PacketRecorder, Writes188BytesOfEachCodedPacket) {
    std::string datagram, expected;
    for (char content = 'a'; content < 'h'; ++content) {
        const std::string packet = ts_packet(0, 0, {content});
        expected += packet;
        datagram += packet + std::string(kCodedPacketSize - kTsPacketSize, 'x');
    }
    const std::string path = memory_file("");
    PacketRecorder recorder(path);
    recorder.write(*find_packets(bytes_of(datagram), datagram.size()));
    recorder.flush();
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(file), {}) == expected);
}

}  // namespace
