// Tests what kestan-monitor writes of a stream with faults.

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/support/monitored_stream.h"
#include "tools/kestan-monitor/measure/time_series.h"
#include "tools/kestan-monitor/report/json_report.h"
#include "tools/kestan-monitor/report/metrics.h"
#include "tools/kestan-monitor/report/plot.h"
#include "tools/kestan-monitor/report/text_report.h"
#include "tools/kestan-monitor/screen/terminal_view.h"
#include "tools/receive/packet_recorder.h"
#include "tools/receive/section_assembler.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// A PAT, an SDT and an SDT with a wrong CRC_32 and a transport error, within a second.
struct FaultyStream : Stream {
    FaultyStream() {
        send(0, kPat);
        send(100 * kNsPerMs, kSdt);
        std::string wrong = packets(kSdt);
        wrong[9] ^= 1;
        send(200 * kNsPerMs, wrong);
        std::string broken = packets(kSdt);
        broken[1] = static_cast<char>(broken[1] | 0x80);
        send(300 * kNsPerMs, broken);
        statistics.advance(kNsPerSecond, 0);
    }

    [[nodiscard]] Report report() const {
        return {"192.0.2.1:5432",
                statistics,
                RateMeter().measure(statistics),
                {{7, "Harbour <1> & Co"}}};
    }
};

TEST(MonitorReport, CountsFaultsInEachOfItsForms) {
    const FaultyStream stream;
    const auto json = nlohmann::json::parse(json_report(stream.report()));
    const auto& sdt = json["pids"][1];
    EXPECT_EQ(sdt["pid"], 0x11);
    EXPECT_EQ(sdt["crc_errors"], 1);
    EXPECT_EQ(sdt["transport_errors"], 1);
    EXPECT_EQ(sdt["tables"][0]["longest_ms"], 900) << "it is still waited for";
    EXPECT_TRUE(sdt["tables"][0]["repetition_ms"].is_null());
    EXPECT_EQ(json["bit_rate"], 4 * 1504);

    const std::string metrics = metrics_text(stream.report());
    const std::string label = R"({stream="192.0.2.1:5432",pid="0x0011"} )";
    EXPECT_THAT(metrics, HasSubstr("crc_errors_total" + label + "1\n"));
    EXPECT_THAT(metrics, HasSubstr("packets_total" + label + "3\n"));

    const std::string text = text_report(stream.report());
    EXPECT_THAT(text, HasSubstr("bit rate   6.0 kbit/s; at most 15.0 kbit/s in any 100"));
    EXPECT_THAT(text,
                HasSubstr("0x0011  SDT actual                     3     4.5   0   1"));
}

TEST(MonitorReport, IsDownInSilenceAndNotInOrderWithLostDatagrams) {
    Stream stream;
    const auto metrics = [&] { return metrics_text({"a", stream.statistics, {}, {}}); };
    EXPECT_THAT(metrics(), HasSubstr("up{stream=\"a\"} 0\n"));
    stream.send(0, kPat);
    stream.statistics.advance(400 * kNsPerMs, 0);
    EXPECT_THAT(metrics(), HasSubstr("up{stream=\"a\"} 1\n"));
    stream.statistics.advance(400 * kNsPerMs, 7);
    EXPECT_EQ(stream.statistics.faults().total(), 7u);
    stream.statistics.advance(kNsPerSecond, 7);
    EXPECT_THAT(metrics(), HasSubstr("up{stream=\"a\"} 0\n"));
}

TEST(FaultLog, KeepsTheFirstAndTheLastTimeAndTheLastTenEvents) {
    FaultLog log;
    log.set_civil_minus_steady(1000);
    for (int i = 0; i < 12; ++i) log.add({FaultKind::kCrc, 0x11}, i, 0, 2);
    const FaultLog::Record& record = log.records().begin()->second;
    EXPECT_EQ(record.count, 24u);
    EXPECT_EQ(record.first, 1000);
    EXPECT_EQ(record.last, 1011);
    ASSERT_EQ(log.last_events().size(), 10u);
    EXPECT_EQ(log.last_events().front().time, 1002);
    EXPECT_EQ(log.last_events().back().time, 1011);
}

TEST(Plot, EscapesNamesAndMergesBinsOverAMinute) {
    FaultyStream stream;
    Plot plot(0);
    plot.add_interval(0x100, {TableKind::kPmt, 7}, kNsPerSecond, 100 * kNsPerMs);
    EXPECT_THAT(plot.svg(stream.report(), kNsPerSecond),
                HasSubstr(">Harbour &lt;1> &amp; Co<"));
    TimeSeries series;
    for (int second = 0; second <= 60; ++second)
        series.add(second * kNsPerSecond, second);
    EXPECT_EQ(series.bin_width(), 200 * kNsPerMs);
    ASSERT_EQ(series.bins().size(), 301u);
    EXPECT_EQ(series.bins()[5].sum, 1);
    EXPECT_EQ(series.bins()[300].sum, 60);
    EXPECT_EQ(series.bins()[1].count, 0u);
}

TEST(TerminalView, ScrollsByPages) {
    Stream stream;
    for (std::uint16_t pid = 0x100; pid < 0x114; ++pid)
        stream.send(0, HexSection{pid, kPmt.hex});
    TerminalView view(false);
    const Report report{"a", stream.statistics, {}, {}};
    const auto first_pid = [&] {
        return view.lay_out(report, {13, 100})[8].substr(0, 6);
    };
    const std::string top = first_pid();
    view.on_key(Key::kPageDown);
    const std::string second = first_pid();
    view.on_key(Key::kPageDown);
    const std::string third = first_pid();
    view.on_key(Key::kPageUp);
    EXPECT_EQ(first_pid(), second);
    view.on_key(Key::kPageUp);
    EXPECT_EQ(first_pid(), top);
    EXPECT_THAT((std::vector{top, second, third}),
                ElementsAre("0x0000", "0x0101", "0x0105"));
}

TEST(FindPackets, TakesOnlyAnRtpHeaderThatIsWhole) {
    std::string packet(kTsPacketSize, '\0');
    packet[0] = 0x47;
    const std::string fixed(11, '\0');
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"RTP", "\x80" + fixed + packet, true},
        {"two sources", "\x82" + fixed + std::string(8, 'x') + packet, true},
        {"version 1", "\x40" + fixed + packet, false},
        {"sources past the end", "\x8F" + fixed + std::string(40, 'x'), false},
        {"extension past the end", "\x90" + fixed + "\1", false},
        {"long extension", "\x90" + fixed + std::string("\0\0\xFF\xFF", 4) + packet,
         false},
        {"padding past the end", "\xA0" + fixed + std::string(188, '\xFF'), false},
        {"rubbish behind the header", "\x80" + fixed + std::string(376, 'x'), false},
    };
    for (const auto& [name, datagram, is_found] : cases) {
        const auto found = find_packets(
            reinterpret_cast<const std::uint8_t*>(datagram.data()), datagram.size());
        EXPECT_EQ(found.has_value(), is_found) << name;
        EXPECT_TRUE(!found || found->in_rtp) << name;
    }
}

TEST(PacketRecorder, WritesPacketsWithoutTheirReedSolomonCode) {
    std::string datagram;
    for (const char content : {'a', 'b'})
        datagram += '\x47' + std::string(187, content) + std::string(16, 'x');
    const auto packets = find_packets(
        reinterpret_cast<const std::uint8_t*>(datagram.data()), datagram.size());
    ASSERT_TRUE(packets);
    const std::string path = testing::TempDir() + "kestan_record.ts";
    PacketRecorder recorder(path);
    recorder.write(*packets);
    recorder.flush();
    std::ostringstream written;
    written << std::ifstream(path, std::ios::binary).rdbuf();
    EXPECT_EQ(written.str(),
              '\x47' + std::string(187, 'a') + '\x47' + std::string(187, 'b'));
}

TEST(SectionAssembler, EndsASectionBeforeThePointerField) {
    Stream stream;
    std::string first = stream.packets(kLongSdt);
    const std::string second = stream.packets(kSdt);
    // The end of the first section, and the second one behind it, in one packet.
    const std::string end = first.substr(kTsPacketSize + 4, 32);
    const std::string section = second.substr(5, 15);
    std::string both = first.substr(kTsPacketSize, 4) + '\x20' + end + section;
    both[1] = static_cast<char>(both[1] | kPayloadUnitStart);
    both.resize(kTsPacketSize, '\xFF');
    std::vector<std::size_t> sizes;
    SectionAssembler assembler([&](const Section& found, std::int64_t) {
        if (found.is_valid()) sizes.push_back(found.size());
    });
    first.resize(kTsPacketSize);
    for (const std::string& packet : {first, both})
        assembler.push(reinterpret_cast<const std::uint8_t*>(packet.data()),
                       Continuity::kInOrder);
    EXPECT_THAT(sizes, ElementsAre(215u, 15u));
}

}  // namespace
