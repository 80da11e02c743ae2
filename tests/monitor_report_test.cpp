// The reports of kestan-monitor on a stream with faults.

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "tests/support/memory_file.h"
#include "tests/support/sections.h"
#include "tools/json/shown_text.h"
#include "tools/kestan-monitor/measure/carried_tables.h"
#include "tools/kestan-monitor/measure/time_series.h"
#include "tools/kestan-monitor/report/json_report.h"
#include "tools/kestan-monitor/report/metrics.h"
#include "tools/kestan-monitor/report/plot.h"
#include "tools/kestan-monitor/report/text_report.h"
#include "tools/kestan-monitor/screen/terminal_view.h"
#include "tools/receive/packet_recorder.h"

namespace {

using namespace orvel::thrift::dvb_tables;
using testing::HasSubstr, testing::Not, testing::StartsWith;

constexpr std::uint16_t kPmtPid = 0x0100;
constexpr std::uint16_t kVideoPid = 0x0200;
constexpr std::int64_t kCivil = 1781525100 * kNsPerSecond;  // 2026-06-15 12:05:00 UTC

struct Stream {
    Stream() { statistics.set_civil_clock(kCivil, std::nullopt); }

    // Returns a packet with the bytes as its payload, behind a pointer_field of 0.
    std::string packet(std::uint16_t pid, const std::string& section) {
        std::string packet{'\x47', static_cast<char>(0x40 | pid >> 8),
                           static_cast<char>(pid),
                           static_cast<char>(0x10 | (counters[pid]++ & 0x0F)), '\0'};
        packet += section;
        packet.resize(kTsPacketSize, '\xFF');
        return packet;
    }

    void send(std::int64_t ms, const std::string& datagram) {
        statistics.push(ms * kNsPerMs,
                        reinterpret_cast<const std::uint8_t*>(datagram.data()),
                        datagram.size());
    }

    [[nodiscard]] Report report() const {
        return {"226.0.0.10:1234", statistics, RateMeter().measure(statistics),
                service_names(statistics.tables())};
    }

    StreamStatistics statistics{0};
    std::map<std::uint16_t, int> counters;
};

// Two seconds: tables every 200 ms for 400 ms, then nothing. On the way come one section
// with a wrong CRC_32, one packet with an error and a malformed datagram; 3 are lost.
struct FaultyStream : Stream {
    FaultyStream() {
        PAT pat;
        PATProgram& program = pat.programs.emplace_back();
        program.program_number = 7;
        program.pid = kPmtPid;
        PMT pmt;
        pmt.program_number = 7;
        pmt.pcr_pid = kMaxPid;
        SDT sdt;
        sdt.services.emplace_back().service_id = 7;
        Descriptor& name = sdt.services[0].descriptors.emplace_back();
        name.tag = 0x48;
        name.data = std::string("\x01\x00\x0B\x15<A>\xE2\x80\xAE & B", 14);
        for (auto* table : {&pat.current_next_indicator, &pmt.current_next_indicator,
                            &sdt.current_next_indicator})
            *table = true;
        const std::string pat_section = sections_of(pat)[0];
        std::string wrong = pat_section;
        ++wrong.back();
        send(0, packet(kSdtPid, sections_of(sdt)[0]));
        for (const int ms : {0, 200, 400}) {
            send(ms, packet(kPatPid, pat_section) + packet(kPmtPid, sections_of(pmt)[0]));
        }
        send(400, packet(kPatPid, wrong));
        std::string error = packet(kVideoPid, "");
        error[1] = static_cast<char>(error[1] | 0x80);
        send(400, error);
        send(400, "no packets");
        statistics.finish(2 * kNsPerSecond, 3);
    }
};

TEST(MonitorReport, TellsProgramsWhatIsWrongWithAStream) {
    const FaultyStream stream;
    const auto json = nlohmann::json::parse(json_report(stream.report()));
    EXPECT_EQ(json["lost_datagrams"], 3);
    EXPECT_EQ(json["malformed_datagrams"], 1);
    EXPECT_EQ(json["bit_rate"], 9 * 1504 / 2.0);
    const auto& pat = json["pids"][0];
    EXPECT_EQ(pat["crc_errors"], 1);
    EXPECT_EQ(pat["tables"][0]["repetition_ms"]["max"], 200);
    EXPECT_EQ(pat["tables"][0]["longest_ms"], 1600) << "the wait that lasts";
    EXPECT_EQ(json["pids"].back()["pid"], kVideoPid);
    EXPECT_EQ(json["pids"].back()["transport_errors"], 1);

    const std::string metrics = metrics_text(stream.report());
    for (const char* line :
         {"up{S} 0", "crc_errors_total{S,pid=\"0x0000\"} 1",
          "crc_errors_total{S,pid=\"0x0100\"} 0", "faults_total{S,check=\"lost\"} 3",
          "faults_total{S,check=\"malformed\"} 1",
          "table_age_seconds{S,pid=\"0x0000\",table=\"PAT\"} 1.6",
          "repetition_faults_total{S,pid=\"0x0000\",table=\"PAT\"} 1",
          "longest_interval_seconds{S,pid=\"0x0000\",table=\"PAT\"} 1.6"}) {
        std::string expected = std::string("\nkestan_monitor_") + line + '\n';
        expected.replace(expected.find("{S") + 1, 1, "stream=\"226.0.0.10:1234\"");
        EXPECT_THAT(metrics, HasSubstr(expected));
    }
}

TEST(MonitorReport, GivesNoAgeOfAPmtThatThePatDoesNotAnnounce) {
    PMT pmt;
    pmt.program_number = 7;
    pmt.pcr_pid = kMaxPid;
    pmt.current_next_indicator = true;
    Stream stream;
    stream.send(0, stream.packet(kPmtPid, sections_of(pmt)[0]));
    stream.statistics.finish(kNsPerSecond, 0);
    const std::string metrics = metrics_text(stream.report());
    const std::string labels = "_seconds{stream=\"226.0.0.10:1234\",pid=\"0x0100\"";
    EXPECT_THAT(metrics, HasSubstr("longest_interval" + labels));
    EXPECT_THAT(metrics, Not(HasSubstr("table_age" + labels)));
}

TEST(MonitorReport, TellsPeopleWhatIsWrongWithAStream) {
    const FaultyStream stream;
    const std::string text = text_report(stream.report());
    EXPECT_THAT(text, HasSubstr("\n  bit rate   6.8 kbit/s; at most "));
    EXPECT_THAT(text, HasSubstr("; 1 malformed, 3 lost here\n"));
    EXPECT_THAT(text,
                HasSubstr("\n0x0000  PAT                            4     3.0   0   1"));
    EXPECT_THAT(text, HasSubstr("\n0x0100  PMT 7 <A> & B "));
    EXPECT_THAT(text, HasSubstr(" PID 0x0000: PAT: a section was away for 1600.0 ms, at "
                                "most 500.0 ms are allowed (ETSI TR 101 290, 1.3.a)\n"));
}

TEST(MonitorReport, DrawsAnyNameAndTheRateOfALongRun) {
    const FaultyStream stream;
    Plot plot(0);
    for (int second = 0; second < 61; ++second) {
        plot.add_interval(kPmtPid, {TableKind::kPmt, 7}, second * kNsPerSecond, kNsPerMs);
        plot.add_packets(second * kNsPerSecond, 1);
    }
    const std::string svg = plot.svg(stream.report(), 61 * kNsPerSecond);
    EXPECT_THAT(svg, HasSubstr(">&lt;A> &amp; B</text>"));
    EXPECT_THAT(svg, Not(HasSubstr("<A>")));
    EXPECT_THAT(svg, HasSubstr("kbit/s, over 200 ms each"));
}

TEST(TimeSeries, MergesItsBinsWhenTheyDoNotReachFarEnough) {
    TimeSeries series;
    for (int i = 0; i < 1300; ++i) series.add(i * 100 * kNsPerMs, i);
    EXPECT_EQ(series.bin_width(), 400 * kNsPerMs);
    ASSERT_EQ(series.bins().size(), 325u);
    for (std::size_t i = 0; i < series.bins().size(); ++i) {
        const auto first = static_cast<std::int64_t>(i * 4);
        ASSERT_EQ(series.bins()[i].count, 4u);
        ASSERT_EQ(series.bins()[i].least, first);
        ASSERT_EQ(series.bins()[i].greatest, first + 3);
    }
    EXPECT_FALSE(series.has_all_points());
}

TEST(FaultLog, KeepsFirstAndLastTimesAndTheLastTenEvents) {
    FaultLog log;
    log.set_civil_minus_steady(kCivil);
    const auto fault_on = [](int pid) {
        return Fault{FaultKind::kCrc, static_cast<std::uint16_t>(pid)};
    };
    for (int i = 0; i < 12; ++i) log.add(fault_on(i % 6), i, i % 5);
    log.add({FaultKind::kLost}, 12, 0, 3);
    EXPECT_EQ(log.total(), 15u);
    EXPECT_EQ(log.total(FaultKind::kLost), 3u);
    const FaultLog::Record& record = log.records().at(fault_on(4));
    EXPECT_EQ(record.count, 2u);
    EXPECT_EQ(record.first, kCivil + 4);
    EXPECT_EQ(record.last, kCivil + 10);
    EXPECT_EQ(record.worst, 4);
    ASSERT_EQ(log.last_events().size(), 10u);
    EXPECT_EQ(log.last_events().front().time, kCivil + 3);
    EXPECT_EQ(log.last_events().back().time, kCivil + 12);
}

// Returns the PIDs that are on the screen.
Lines shown_pids(TerminalView& view, const Report& report) {
    Lines pids;
    for (const std::string& line : view.lay_out(report, {20, 80}))
        if (line.compare(0, 2, "0x") == 0) pids.push_back(line.substr(0, 6));
    return pids;
}

TEST(TerminalView, ScrollsByPagesAndNotBehindTheEnd) {
    Stream stream;
    for (std::uint16_t pid = 0x0300; pid < 0x0340; ++pid)
        stream.send(0, stream.packet(pid, ""));
    TerminalView view(false);
    const Lines first = shown_pids(view, stream.report());
    view.on_key(Key::kPageDown);
    const Lines second = shown_pids(view, stream.report());
    EXPECT_EQ(second.size(), first.size());
    EXPECT_EQ(std::stoi(second.front(), nullptr, 16),
              std::stoi(first.back(), nullptr, 16) + 1);
    view.on_key(Key::kPageUp);
    EXPECT_EQ(shown_pids(view, stream.report()), first);
    for (int i = 0; i < 20; ++i) view.on_key(Key::kPageDown);
    EXPECT_EQ(shown_pids(view, stream.report()).back(), "0x033F");
    EXPECT_EQ(shown_pids(view, stream.report()).size(), first.size());
}

TEST(MonitorReport, MakesOneEventOfTheContinuityErrorsOfOneGap) {
    FaultLog faults;
    const auto lose = [&](std::int64_t ms, std::uint16_t pids) {
        for (std::uint16_t pid = 1; pid <= pids; ++pid)
            faults.add({FaultKind::kContinuity, pid}, ms * kNsPerMs, 0, 3);
    };
    lose(0, 40);
    faults.add({FaultKind::kSyncByte}, 500 * kNsPerMs);
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
    EXPECT_EQ(shown_path("a\nb"), "\"a\\x0ab\"");
}

TEST(PacketRecorder, Writes188BytesOfEachCodedPacket) {
    std::string datagram;
    std::string expected;
    for (char content = 'a'; content < 'h'; ++content) {
        const std::string packet = '\x47' + std::string(kTsPacketSize - 1, content);
        expected += packet;
        datagram += packet + std::string(kCodedPacketSize - kTsPacketSize, 'x');
    }
    const std::string path = memory_file("");
    PacketRecorder recorder(path);
    recorder.write(*find_packets(reinterpret_cast<const std::uint8_t*>(datagram.data()),
                                 datagram.size()));
    recorder.flush();
    std::ifstream file(path, std::ios::binary);
    const std::string written((std::istreambuf_iterator<char>(file)), {});
    EXPECT_TRUE(written == expected);
}

}  // namespace
