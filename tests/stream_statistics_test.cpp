#include "tools/kestan-monitor/measure/stream_statistics.h"

#include <arpa/inet.h>

#include <functional>
#include <random>

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tables/section_packetizer.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/measure/repetition.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

struct Section {
    std::uint16_t pid;
    std::string hex;  // but for section_length and CRC_32
};

const Section kPat{0x0000, "00 b000 0001 c1 0000 0007 e100"};
const Section kCat{0x0001, "01 b000 ffff c1 0000 0904 0b00 e123"};
const Section kSdt{0x0011, "42 f000 0001 c1 0000 0001 f0"};
const Section kLongSdt{kSdt.pid, kSdt.hex + std::string(400, '0')};
const Section kTdt{0x0014, "70 7000 c079 124559"};
const Section kPmt{0x0100, "02 b000 0007 c1 0000 ffff f000"};
const Section kOtherPmt{0x0310, "02 b000 0008 c1 0000 ffff f000"};

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

using Checks = std::map<std::string, int>;  // how often each has failed

struct Stream {
    // Returns the packets of a section with continuous counters.
    std::string packets(const Section& section) {
        std::string bytes = *from_hex(section.hex);
        const bool is_long = (bytes[1] & 0x80) != 0;
        bytes[2] = static_cast<char>(bytes.size() - 3 + (is_long ? 4 : 0));
        const std::uint32_t crc = htonl(crc_32(bytes.data(), bytes.size()));
        if (is_long) bytes.append(reinterpret_cast<const char*>(&crc), 4);
        const SectionsPtr built(dvbpsi_NewPSISection(1024));
        built->p_payload_end = std::copy(bytes.begin(), bytes.end(), built->p_data);
        std::string packets = packetize_sections(built.get(), section.pid);
        for (std::size_t at = 3; at < packets.size(); at += kTsPacketSize) {
            packets[at] = static_cast<char>(0x10 | (counters[section.pid]++ & 0x0F));
        }
        return packets;
    }

    void send(std::int64_t time, const std::string& datagram) {
        const auto* const data = reinterpret_cast<const std::uint8_t*>(datagram.data());
        statistics.push(time, data, datagram.size());
    }
    void send(std::int64_t time, const Section& section) { send(time, packets(section)); }

    // Returns the checks that have failed by `now`, on the section's PID or anywhere. A
    // fault that lasts counts once.
    Checks failing(std::int64_t now, const Section* on = nullptr) {
        statistics.advance(now, 0);
        Checks checks;
        for (const auto& [fault, record] : statistics.faults().records()) {
            if (on != nullptr && fault.pid != on->pid) continue;
            const std::string check = check_name(fault.kind);
            const bool lasts = fault.kind == FaultKind::kSilence || check == "repetition";
            checks[check] = lasts ? 1 : checks[check] + static_cast<int>(record.count);
        }
        return checks;
    }

    StreamStatistics statistics{0};
    std::map<int, int> counters;
};

// Returns the checks that fail when a section begins `pause` after the end of the
// previous one. The packets of the first section are 10 ms apart, those of the second one
// 30 ms.
Checks failing_after(std::int64_t pause, const Section& section) {
    Stream stream;
    stream.send(0, kPat);  // announces the PMT
    std::int64_t now = 0;
    for (const auto& [wait, apart] :
         {std::pair(0 * kNsPerMs, 10 * kNsPerMs), std::pair(pause, 30 * kNsPerMs)}) {
        const std::string packets = stream.packets(section);
        for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize)
            stream.send(now += at == 0 ? wait : apart, packets.substr(at, kTsPacketSize));
    }
    Checks checks = stream.failing(now, &section);
    checks.erase("tdt_stands_still");  // both are the same
    return checks;
}

TEST(StreamStatistics, LimitsThePauseBetweenSectionsToTheNanosecond) {
    const std::tuple<const char*, Section, std::int64_t, std::int64_t> cases[] = {
        {"PAT", kPat, 0, 500 * kNsPerMs},
        {"PMT", kPmt, 0, 500 * kNsPerMs},
        {"SDT", kSdt, 25 * kNsPerMs, 2000 * kNsPerMs},
        {"SDT of two packets", kLongSdt, 25 * kNsPerMs, 1970 * kNsPerMs},
        {"TDT", kTdt, 25 * kNsPerMs, 30 * kNsPerSecond},
    };
    for (const auto& [name, section, least, longest] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(failing_after(least, section), Checks());
        EXPECT_EQ(failing_after(longest, section), Checks());
        EXPECT_EQ(failing_after(longest + 1, section), (Checks{{"repetition", 1}}));
        if (least == 0) continue;
        EXPECT_EQ(failing_after(least - 1, section), (Checks{{"section_gap", 1}}));
    }
    EXPECT_EQ(failing_after(3600 * kNsPerSecond, kCat), Checks()) << "has no limit";
}

TEST(Repetition, MeasuresTheIntervalsOfEachSectionAndTheirDifferences) {
    Repetition repetition(std::nullopt, nullptr);
    for (const int now : {0, 10, 30, 35}) repetition.add(1, 1, now);
    repetition.add(0, 1, 34);
    EXPECT_EQ(repetition.intervals().least, 5);
    EXPECT_EQ(repetition.longest(), 20);
    EXPECT_EQ(repetition.jitter().least, 10);
    EXPECT_EQ(repetition.jitter().greatest, 15);
    repetition.expect(40);
    repetition.advance(61);
    EXPECT_EQ(repetition.longest(), 21);
}

TEST(StreamStatistics, FollowsThePatInForce) {
    const Section first{kPat.pid, "00 b000 0001 c1 0001 0007 e100"};
    const Section second{kPat.pid, "00 b000 0001 c1 0101 0008 e100"};
    const Section changed{kPat.pid, "00 b000 0002 c3 0000 0009 e100"};
    Stream stream;
    stream.send(0, Section{kPat.pid, "00 b000 0002 c5 0001"});
    stream.send(0, kPmt);
    stream.send(0, first);
    stream.send(1, second);
    stream.send(1, Section{kPat.pid, "00 b000 0001 c1 0302 0008 e100"});  // of no table
    stream.send(400 * kNsPerMs, first);
    EXPECT_EQ(stream.failing(500 * kNsPerMs + 1, &kPat), Checks());
    EXPECT_EQ(stream.failing(500 * kNsPerMs + 2, &kPat), (Checks{{"repetition", 1}}));
    const auto missing = stream.failing(500 * kNsPerMs + 2, &kPmt);
    EXPECT_EQ(missing, (Checks{{"repetition", 1}})) << "of service 8";
    stream.send(500 * kNsPerMs, Section{kPat.pid, "00 b000 0002 c3 0000"});
    EXPECT_EQ(stream.failing(800 * kNsPerMs, &kPat).size(), 1u)
        << "it has one section now";
    EXPECT_EQ(stream.failing(9 * kNsPerSecond, &kPmt), missing) << "it has no PMT now";
    stream.send(10 * kNsPerSecond, changed);
    const auto& pmts = stream.statistics.pids().at(kPmt.pid).tables;
    ASSERT_EQ(pmts.size(), 2u);
    EXPECT_FALSE(pmts.at({TableKind::kPmt, 7}).is_announced());
    EXPECT_TRUE(pmts.at({TableKind::kPmt, 9}).is_announced());
}

TEST(StreamStatistics, GivesRatesPeakAndTime) {
    Stream stream;
    stream.send(0, stream.packets(kSdt) + stream.packets(kPat));
    stream.send(kPeakWindowNs - 1, kPat);
    stream.send(kPeakWindowNs, stream.packets(kPat) + stream.packets(kTdt));
    stream.send(kPeakWindowNs - 5, kSdt);  // a stamp that goes back
    stream.statistics.advance(kNsPerSecond / 2, 0);
    EXPECT_EQ(stream.statistics.packets(), 6u);
    EXPECT_EQ(stream.statistics.duration(), kNsPerSecond / 2);
    EXPECT_DOUBLE_EQ(stream.statistics.peak_bit_rate(), 4 * 1504 / 0.1);
    const auto& tdt = stream.statistics.pids().at(kTdt.pid).tables.at({TableKind::kTdt});
    EXPECT_EQ(utc_date_and_time(*tdt.utc()), "1993-10-13 12:45:59");
}

using Datagrams = std::vector<std::string>;

// A right stream of seven seconds: a datagram of a null packet, a video's packet and the
// tables that are due, every 100 ms.
struct RightStream : Stream {
    // What step `step` sends; `tdt` is the TDT's time, seconds from its usual one.
    Datagrams step(int step) {
        std::string datagram = packet(0x1FFF, null_counter += 5);
        datagram += packet(0x0200, video_counter++);
        if (step % 2 == 0) datagram += packets(pat) + packets(pmt);
        if (step % 5 == 1) datagram += packets(cat) + packets(kSdt);
        char hex[] = "70 7000 c079 124500";
        std::snprintf(hex + 17, 3, "%02d", step / 10 + tdt);
        if (step % 10 == 3) datagram += packets({kTdt.pid, hex});
        return {datagram};
    }

    static std::string packet(int pid, int counter, char flags = 0x10) {
        std::string bytes(kTsPacketSize, '\0');
        bytes[0] = 0x47;
        bytes[1] = static_cast<char>(pid >> 8);
        bytes[2] = static_cast<char>(pid);
        bytes[3] = static_cast<char>(flags | (counter & 0x0F));
        return bytes;
    }

    Section pat = kPat;
    Section pmt = kPmt;
    Section cat = kCat;
    int tdt = 10;
    int null_counter = 0;
    int video_counter = 0;
};

using Edit = std::function<void(RightStream&, int step, Datagrams&)>;

struct Break {
    const char* name;
    Edit edit;
    Checks expected;
};

// At step 40, which sends null packet, video, PAT and PMT: packet 0 to 3.
Edit once(const std::function<void(RightStream&, Datagrams&)>& edit) {
    return [edit](RightStream& stream, int step, Datagrams& sent) {
        if (step == 40) edit(stream, sent);
    };
}
Edit flip(std::size_t packet, std::size_t byte, int bits) {
    return once([=](auto&, auto& sent) {
        sent[0][packet * kTsPacketSize + byte] ^= static_cast<char>(bits);
    });
}
// Puts each datagram behind an RTP header with an extension and padding. The number's
// bits above the sixteenth are the source.
Edit rtp(int (*number_of)(int step)) {
    return [=](auto&, int step, auto& sent) {
        const int number = number_of(step);
        std::string header = std::string("\xb1!", 2) + std::string(14, '\0') +
                             std::string("\0\0\0\1", 4) + "abcd";
        header[2] = static_cast<char>(number >> 8);
        header[3] = static_cast<char>(number);
        header[11] = static_cast<char>(number >> 16);
        sent[0].insert(0, header);
        sent[0] += std::string("\0\0\3", 3);
    };
}
// Sends one more video packet, its counter `ahead` of the last one's.
Edit add_video(int ahead, char flags, const std::string& content = "") {
    return once([=](auto& stream, auto& sent) {
        sent.push_back(stream.packet(0x0200, (stream.video_counter += ahead) - 1, flags));
        sent.back().replace(4, content.size(), content);
    });
}
// Sends these sections too, after an edit of their packets.
Edit add(
    const std::vector<Section>& sections,
    void (*edit)(std::string&) = [](std::string&) {}) {
    return once([=](auto& stream, auto& sent) {
        for (const Section& section : sections)
            edit(sent.emplace_back(stream.packets(section)));
    });
}

const Break kBreaks[] = {
    {"lost sync byte", flip(1, 0, 1), {{"sync_byte", 1}, {"continuity", 1}}},
    {"transport_error_indicator", flip(2, 1, 0x80), {{"transport_error", 1}}},
    {"scrambled PMT", flip(3, 3, 0x80), {{"scrambled", 1}}},
    {"scrambled video", flip(1, 3, 0x80), {}},
    {"no packets",
     once([](auto&, auto& sent) { sent.push_back("no packets"); }),
     {{"malformed", 1}}},
    {"rubbish as long as an RTP header before the packets",
     once([](auto&, auto& sent) { sent[0].insert(0, 12, '@'); }),
     {{"malformed", 1}, {"continuity", 3}}},
    {"RTP", rtp([](int step) { return step; }), {}},
    {"RTP datagrams lost",
     rtp([](int step) { return step < 40 ? step : step + 3; }),
     {{"rtp_sequence", 3}}},
    {"RTP datagram repeated",
     rtp([](int step) { return step < 40 ? step : step - 1; }),
     {{"rtp_sequence", 1}}},
    {"RTP datagrams swapped",
     rtp([](int step) { return step == 40 || step == 41 ? 81 - step : step; }),
     {{"rtp_sequence", 1}}},
    {"RTP numbers jump back",
     rtp([](int step) { return step < 40 ? step + 60000 : step - 40; }),
     {{"rtp_sequence", 1}}},
    {"RTP of another source",
     rtp([](int step) { return step < 40 ? step : step + 0x10064; }),
     {}},
    {"204-byte packets",
     once([](auto&, auto& sent) {
         for (std::size_t at = 188; at <= sent[0].size(); at += 204)
             sent[0].insert(at, 16, 'x');
     }),
     {{"coded_packets", 1}}},
    {"lost video packet", add_video(2, 0x10, "\1\x80"), {{"continuity", 1}}},
    {"lost packet before an empty adaptation field",
     add_video(2, 0x30, {"\0\x80", 2}),
     {{"continuity", 1}}},
    {"lost packet behind a discontinuity_indicator", add_video(4, 0x30, "\1\x80"), {}},
    {"lost first packet of a section",
     add({kLongSdt}, [](auto& packets) { packets.erase(0, kTsPacketSize); }),
     {{"continuity", 1}}},
    {"lost last packet of a section",
     add({kLongSdt}, [](auto& packets) { packets.resize(kTsPacketSize); }),
     {{"continuity", 1}}},
    {"table replaced in the middle of a section",
     once([](auto& stream, auto& sent) {
         sent.push_back(stream.packets(kLongSdt).substr(0, kTsPacketSize));
         --stream.counters[kLongSdt.pid];
     }),
     {}},
    {"packet repeated once", add({kSdt}, [](auto& packet) { packet += packet; }), {}},
    {"packet repeated twice",
     add({kSdt}, [](auto& packet) { packet += packet + packet; }),
     {{"continuity", 1}, {"section_gap", 1}}},
    {"packet without payload", add_video(0, 0x20), {}},
    {"packet without payload that counts", add_video(1, 0x20), {{"continuity", 1}}},
    {"repeated counter, other content", add_video(0, 0x10, "1"), {{"continuity", 1}}},
    {"wrong CRC_32",
     add({kPat, kCat, kSdt, kPmt}, [](auto& packet) { packet[9] ^= 1; }),
     {{"crc", 4}}},
    {"PMT on the PIDs of other tables",
     add({{0x00, kPmt.hex}, {0x01, kPmt.hex}, {0x11, kPmt.hex}, {0x14, kPmt.hex}}),
     {{"table_id", 4}}},
    {"SDT other with the SDT, and SDT with the PMT",
     add({{kSdt.pid, "46 f000 0002 c1 0000 0001 f0"}, {kPmt.pid, kSdt.hex}}),
     {}},
    {"change without a new version, and back",
     add({{kPat.pid, kPat.hex + "0000 e010"}, kLongSdt}),
     {{"version", 4}}},
    {"PAT and PMT not in force yet for 600 ms",
     [](auto& stream, int step, auto&) {
         stream.pat.hex[14] = stream.pmt.hex[14] = step / 4 == 10 ? '0' : '1';
     },
     {{"repetition", 1}}},
    {"pause",
     [](auto&, int step, auto& sent) {
         if (step / 6 == 6) sent.clear();
     },
     {{"continuity", 5}, {"silence", 1}, {"repetition", 1}}},
    {"PMT on an unannounced PID",
     [](auto& stream, int step, auto& sent) {
         if (step > 40 && step <= 46) sent.push_back(stream.packets({0x0300, kPmt.hex}));
         if (step >= 50 && step <= 56) sent.push_back(stream.packets({0x0310, kPmt.hex}));
     },
     {{"unannounced_pmt", 1}}},
    {"two PATs",
     [](auto& stream, int step, auto&) {
         stream.pat.hex[14] = step > 40 && step % 4 == 1 ? '3' : '1';
     },
     {{"pat_alternates", 13}}},
    {"two PATs in one second, the second with a new service",
     [](auto& stream, int step, auto& sent) {
         if (step == 39) stream.pat.hex[14] = '3';
         if (step == 41) stream.pat.hex = "00 b000 0001 c5 0000 0007 e100 0008 e310";
         if (step >= 42 && step % 2 == 0) sent.push_back(stream.packets(kOtherPmt));
     },
     {}},
    {"two PATs in one second, the second without a service",
     [](auto& stream, int step, auto& sent) {
         if (step == 1) stream.pat.hex = "00 b000 0001 c7 0000 0007 e100 0008 e310";
         if (step == 39) stream.pat.hex[14] = '9';
         if (step == 41) stream.pat.hex = "00 b000 0001 cb 0000 0007 e100";
         if (step >= 2 && step <= 40 && step % 2 == 0)
             sent.push_back(stream.packets(kOtherPmt));
     },
     {}},
    {"a PAT and one second later the one before",
     [](auto& stream, int step, auto&) {
         stream.pat.hex[14] = step > 30 && step <= 42 ? '3' : '1';
     },
     {}},
    {"PCR_PID without a stream for less than two seconds, and for longer",
     [](auto& stream, int step, auto&) {
         if (step == 4) stream.pmt.hex = "02 b000 0007 c3 0000 e200 f000";
         if (step == 22) stream.pmt.hex = "02 b000 0007 c5 0000 ffff f000";
         if (step == 40) stream.pmt.hex = "02 b000 0007 c7 0000 e200 f000";
     },
     {{"consistency", 1}}},
    {"PCR on a PID without a stream",
     [](auto& stream, int step, auto& sent) {
         if (step == 40) stream.pmt.hex = "02 b000 0007 c3 0000 e200 f000";
         sent.push_back(stream.packet(0x0200, stream.video_counter - 1, 0x20));
         sent.back().replace(4, 2, "\x07\x10");
     },
     {}},
    {"scrambled stream without a CAT",
     [](auto& stream, int step, auto& sent) {
         stream.pmt.hex = "02 b000 0007 c3 0000 ffff f000 1b e200 f000";
         sent[0][kTsPacketSize + 3] |= '\x80';
         if (step == 40) stream.cat.hex[14] = '0';
         if (step == 63) stream.cat.hex[14] = '1';
     },
     {{"cat_missing", 1}}},
    {"TDT that stands still",
     [](auto& stream, int step, auto&) { stream.tdt -= step > 40 && step % 10 == 0; },
     {{"tdt_stands_still", 1}}},
    {"TDT that goes back",
     once([](auto& stream, auto&) { stream.tdt -= 2; }),
     {{"tdt_goes_back", 1}}},
    {"TDT 5 s away for once",
     [](auto& stream, int step, auto&) {
         stream.tdt += step == 40 ? 5 : step == 50 ? -5 : 0;
     },
     {{"tdt_offset", 1}, {"tdt_goes_back", 1}}},
};

TEST(StreamStatistics, FindsOneFaultInAStreamThatIsRightOtherwise) {
    for (const Break& broken : kBreaks) {
        RightStream stream;
        const std::int64_t utc_of_step_0 = 750516310;  // 1993-10-13 12:45:10
        stream.statistics.set_civil_clock(utc_of_step_0 * kNsPerSecond, 4 * kNsPerSecond);
        for (int step = 0; step < 70; ++step) {
            Datagrams sent = stream.step(step);
            broken.edit(stream, step, sent);
            stream.statistics.advance(step * 100 * kNsPerMs, 0);
            for (const std::string& datagram : sent)
                stream.send(step * 100 * kNsPerMs, datagram);
        }
        EXPECT_EQ(stream.failing(7 * kNsPerSecond), broken.expected) << broken.name;
        for (const auto& [fault, record] : stream.statistics.faults().records())
            EXPECT_GE(record.first, utc_of_step_0 * kNsPerSecond + 3900 * kNsPerMs)
                << broken.name;
    }
}

TEST(StreamStatistics, FindsAStreamThatBeginsLateEndsEarlyOrIsLost) {
    const Checks silence{{"silence", 1}};
    for (const std::int64_t late_ms : {500, 501}) {
        Stream stream;
        stream.send(late_ms * kNsPerMs, kPat);
        EXPECT_EQ(stream.failing(late_ms * kNsPerMs), late_ms > 500 ? silence : Checks());
    }
    Stream rare;  // without a table of 500 ms
    rare.send(0, kSdt);
    EXPECT_EQ(rare.failing(2 * kNsPerSecond).count("silence"), 0u);
    EXPECT_EQ(rare.failing(2 * kNsPerSecond + 1).count("silence"), 1u);
    rare.statistics.advance(3 * kNsPerSecond, 7);
    EXPECT_EQ(rare.failing(3 * kNsPerSecond)["lost"], 7);
    Stream none;
    none.statistics.finish(0, 0);
    EXPECT_EQ(none.failing(kNsPerSecond), (Checks{{"reception", 1}}));
}

TEST(StreamStatistics, KeepsItsMemoryBoundedInAHostileStream) {
    Stream stream;
    std::mt19937 random(1);
    std::array<char, 64> hex{};
    std::int64_t now = 0;
    for (int i = 0; i < 40000; ++i) {
        const auto service = static_cast<unsigned>(random() & 0xFFFF);
        const auto pid = static_cast<unsigned>(0x20 + random() % 8000);
        const int version = 0xC1 | i / 50 % 32 * 2;
        if (i % 50 == 0)
            std::snprintf(hex.data(), hex.size(), "00 b000 0001 %02x 0000 %04x %04x",
                          version, service, 0xE000 | pid);
        else
            std::snprintf(hex.data(), hex.size(), "02 b000 %04x c1 %02x%02x ffff f000",
                          service, i % 3, i % 3);
        stream.send(
            now += 10 * kNsPerMs,
            Section{static_cast<std::uint16_t>(i % 50 == 0 ? 0 : pid), hex.data()});
        stream.send(now, RightStream::packet(static_cast<int>(pid), i * 7));
    }
    std::size_t tables = 0;
    std::size_t sections = 0;
    for (const auto& [number, on] : stream.statistics.pids()) {
        tables += on.tables.size();
        for (const auto& [key, table] : on.tables)
            sections += table.contents().sections().size();
    }
    EXPECT_LE(tables, 1010u);
    EXPECT_LE(sections, tables);
    EXPECT_LE(stream.statistics.faults().records().size(), FaultLog::kMaxFaults);
    EXPECT_GT(stream.failing(now).at("unannounced_pmt"), 50);
}

}  // namespace
