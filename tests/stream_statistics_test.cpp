#include "tools/kestan-monitor/measure/stream_statistics.h"

#include <fmt/format.h>

#include <functional>
#include <iomanip>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/cases.h"
#include "tests/support/packets.h"
#include "tests/support/sections.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/measure/repetition.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/receive/rtp_order.h"

namespace {

constexpr std::int64_t kMs = kNsPerMs;
constexpr std::int64_t kSecond = kNsPerSecond;
constexpr int kVideoPid = 0x0200;

struct Section {
    std::uint16_t pid;
    std::string hex;  // but for section_length and CRC_32
};

const Section kPat{kPatPid, "00 b000 0001 c1 0000 0007 e100"};
const Section kCat{kCatPid, "01 b000 ffff c1 0000 0904 0b00 e123"};
const Section kSdt{kSdtPid, "42 f000 0001 c1 0000 0001 f0"};
const Section kLongSdt{kSdtPid, kSdt.hex + std::string(400, '0')};
const Section kTdt{kTdtPid, "70 7000 c079 124559"};
const Section kPmt{0x0100, "02 b000 0007 c1 0000 ffff f000"};

struct Stream {
    // Returns the packets of a section with continuous counters.
    std::string packets(const Section& section) {
        const std::string bytes = sealed(*from_hex(section.hex));
        return section_packets({bytes}, section.pid, counters[section.pid]);
    }

    void send(std::int64_t time, const std::string& datagram) {
        statistics.push(time, bytes_of(datagram), datagram.size());
    }
    void send(std::int64_t time, const Section& section) { send(time, packets(section)); }

    // Returns the checks that have failed by `now`, on the section's PID or anywhere, and
    // how often if more than once: "continuity, crc 2".
    std::string failing(std::int64_t now, const Section* on = nullptr) {
        statistics.advance(now, 0);
        std::map<std::string, std::uint64_t> checks;
        for (const auto& [fault, record] : statistics.faults().records()) {
            if (on == nullptr || fault.pid == on->pid)
                checks[check_name(fault.kind)] += record.count;
        }
        std::string text;
        for (const auto& [check, count] : checks) {
            text += (text.empty() ? "" : ", ") + check;
            if (count > 1) text += ' ' + std::to_string(count);
        }
        return text;
    }

    StreamStatistics statistics{0};
    std::map<int, int> counters;
};

// Returns the checks that fail when a section begins `pause` after the end of the
// previous one. The packets of the first section are 10 ms apart, those of the second one
// 30 ms.
std::string failing_after(std::int64_t pause, Section section) {
    Stream stream;
    stream.send(0, kPat);  // announces the PMT
    std::int64_t now = 0;
    for (const auto& [wait, apart] :
         {std::pair(0 * kMs, 10 * kMs), std::pair(pause, 30 * kMs)}) {
        const std::string packets = stream.packets(section);
        for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize)
            stream.send(now += at == 0 ? wait : apart, packets.substr(at, kTsPacketSize));
        if (section.pid == kTdtPid) section.hex = "70 7000 c079 124629";
    }
    return stream.failing(now, &section);
}

TEST(StreamStatistics, LimitsThePauseBetweenSectionsToTheNanosecond) {
    const std::tuple<Section, std::int64_t, std::int64_t> cases[] = {
        {kPat, 0, 500 * kMs},
        {kPmt, 0, 500 * kMs},
        {kSdt, 25 * kMs, 2000 * kMs},
        {kLongSdt, 25 * kMs, 1970 * kMs},
        {kTdt, 25 * kMs, 30000 * kMs}};
    for (const auto& [section, least, longest] : cases) {
        SCOPED_TRACE(section.hex);
        EXPECT_EQ(failing_after(least, section), "");
        EXPECT_EQ(failing_after(longest, section), "");
        EXPECT_EQ(failing_after(longest + 1, section), "repetition");
        if (least == 0) continue;
        EXPECT_EQ(failing_after(least - 1, section), "section_gap");
    }
    EXPECT_EQ(failing_after(3600 * kSecond, kCat), "") << "has no limit";
}

TEST(Repetition, MeasuresTheIntervalsOfEachSectionAndTheirDifferences) {
    FaultLog log;
    Repetition repetition(kCatPid, {TableKind::kCat}, log);
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
    const Section first{kPatPid, "00 b000 0001 c1 0001 0007 e100"};
    Stream stream;
    stream.send(0, Section{kPatPid, "00 b000 0002 c5 0001"});
    stream.send(0, kPmt);
    stream.send(0, first);
    stream.send(1, Section{kPatPid, "00 b000 0001 c1 0101 0008 e100"});
    stream.send(1, Section{kPatPid, "00 b000 0001 c1 0302 0008 e100"});  // of no table
    stream.send(400 * kMs, first);
    EXPECT_EQ(stream.failing(500 * kMs + 1, &kPat), "");
    EXPECT_EQ(stream.failing(500 * kMs + 2, &kPat), "repetition");
    EXPECT_EQ(stream.failing(500 * kMs + 2, &kPmt), "repetition 2") << "services 7, 8";
    stream.send(500 * kMs, Section{kPatPid, "00 b000 0002 c3 0000"});
    EXPECT_EQ(stream.failing(800 * kMs, &kPat), "repetition") << "one section now";
    EXPECT_EQ(stream.failing(9 * kSecond, &kPmt), "repetition 2") << "it has no PMT now";
    stream.send(10 * kSecond, Section{kPatPid, "00 b000 0002 c3 0000 0009 e100"});
    const auto& pmts = stream.statistics.pids().at(kPmt.pid).tables;
    ASSERT_EQ(pmts.size(), 2u);
    EXPECT_FALSE(pmts.at({TableKind::kPmt, 7}).is_announced());
    EXPECT_TRUE(pmts.at({TableKind::kPmt, 9}).is_announced());
}

TEST(StreamStatistics, GivesRatesPeakAndTime) {
    Stream stream;
    stream.send(0, stream.packets(kSdt) + stream.packets(kPat) + stream.packets(kTdt));
    for (int i = 0; i < 2; ++i) stream.send(kPeakWindowNs - 1, kPat);
    stream.send(kPeakWindowNs, kPat);
    stream.send(kPeakWindowNs - 5, kSdt);  // a stamp that goes back
    EXPECT_EQ(stream.statistics.now(), kPeakWindowNs);
    stream.statistics.advance(kSecond / 2, 0);
    EXPECT_EQ(stream.statistics.packets(), 7u);
    EXPECT_EQ(stream.statistics.duration(), kSecond / 2);
    EXPECT_DOUBLE_EQ(stream.statistics.peak_bit_rate(), 5 * 1504 / 0.1);
    const auto& tdt = stream.statistics.pids().at(kTdt.pid).tables.at({TableKind::kTdt});
    EXPECT_EQ(tdt.utc(), 750516359);  // 1993-10-13 12:45:59
}

TEST(Rtp, TellsWhichDatagramsAreLostComeAgainOrChangePlaces) {
    for (const auto& [datagrams, expected] : cases_in("rtp.txt")) {
        FaultLog log;
        RtpSequenceCheck check(log);
        RtpOrder order;
        int late = 0;
        std::istringstream numbers(datagrams);
        for (std::uint64_t number = 0; numbers >> std::setbase(0) >> number;) {
            const std::string header = rtp_header(number);
            check.add(bytes_of(header), 0);
            late += order.push(bytes_of(header)).value_or(1) <= 0;
        }
        EXPECT_EQ(fmt::format("{} faults, {} late", log.all().total, late), expected)
            << datagrams;
    }
}

// A right stream of seven seconds: a datagram of a null packet, a video's packet and the
// tables that are due, every 100 ms.
struct RightStream : Stream {
    // Makes what this step sends.
    void make() {
        std::string datagram = ts_packet(kNullPid, null_counter += 5);
        datagram += ts_packet(kVideoPid, video_counter++);
        if (step % 2 == 0) datagram += packets(pat) + packets(pmt);
        if (step % 5 == 1) datagram += packets(cat) + packets(kSdt);
        const std::string time = fmt::format("1245{:02}", step / 10 + tdt);
        if (step % 10 == 3) datagram += packets({kTdtPid, "70 7000 c079" + time});
        sent = {datagram};
    }

    int step = 0;
    std::vector<std::string> sent;  // the step's datagrams
    Section pat = kPat, pmt = kPmt, cat = kCat;
    int tdt = 10;  // the TDT's time at step 0, in seconds
    int null_counter = 0, video_counter = 0;
};

// Changes what a step sends, and the tables of the later ones.
using Edit = std::function<void(RightStream&)>;

// At step 40, which sends null packet, video, PAT and PMT: packet 0 to 3.
Edit once(const Edit& edit) {
    return [edit](auto& s) {
        if (s.step == 40) edit(s);
    };
}
// Sends one more video packet, its counter `ahead` of the last one's.
Edit add_video(int ahead, int control, const std::string& content) {
    return once([=](auto& s) {
        const int counter = (s.video_counter += ahead) - 1;
        s.sent.push_back(ts_packet(kVideoPid, counter, content, control));
    });
}
// Sends these sections too, after an edit of their packets.
void keep(std::string&) {}
Edit add(const std::vector<Section>& sections, void (*edit)(std::string&) = keep) {
    return once([=](auto& s) {
        for (const Section& section : sections)
            edit(s.sent.emplace_back(s.packets(section)));
    });
}

// What is broken, which checks fail, and the edit that breaks it.
const std::tuple<const char*, const char*, Edit> kBreaks[] = {
    {"lost sync byte", "continuity, sync_byte",
     once([](auto& s) { s.sent[0][188] = 'x'; })},
    {"transport_error_indicator", "transport_error",
     once([](auto& s) { s.sent[0][2 * 188 + 1] |= '\x80'; })},
    {"scrambled PMT", "scrambled",
     once([](auto& s) { s.sent[0][3 * 188 + 3] |= '\x80'; })},
    {"rubbish as long as an RTP header before the packets", "continuity 3, malformed",
     once([](auto& s) { s.sent[0].insert(0, 12, '@'); })},
    {"datagrams lost of RTP with an extension and padding", "rtp_sequence 3",
     [](auto& s) {
         const int number = s.step < 40 ? s.step : s.step + 3;
         std::string header = rtp_header(static_cast<std::uint64_t>(number));
         header[0] = '\xb1';
         s.sent[0].insert(0, header + std::string(7, '\0') + "\1abcd");
         s.sent[0] += std::string("\0\0\3", 3);
     }},
    {"204-byte packet", "coded_packets",
     once([](auto& s) { s.sent.push_back(ts_packet(0x1FFF, 0) + "16 bytes of code"); })},
    {"lost video packet", "continuity", add_video(2, 0x10, "\1\x80")},
    {"loss at empty adaptation field", "continuity", add_video(2, 0x30, {"\0\x80", 2})},
    {"lost packet behind a discontinuity_indicator", "", add_video(4, 0x30, "\1\x80")},
    {"packet without payload that counts", "continuity", add_video(1, 0x20, {"\0", 1})},
    {"repeated counter, other content", "continuity", add_video(0, 0x10, "1")},
    {"lost end of a section and beginning of the next one", "continuity",
     once([](auto& s) {
         s.sent.push_back(s.packets(kLongSdt).substr(0, 188));
         const Section next{kSdtPid, kSdt.hex + std::string(400, '1')};
         s.sent.push_back(s.packets(next).substr(188));
     })},
    {"table replaced in the middle of a section", "", once([](auto& s) {
         s.sent.push_back(s.packets(kLongSdt).substr(0, kTsPacketSize));
         --s.counters[kSdtPid];
     })},
    {"packet repeated once", "", add({kSdt}, [](auto& packet) { packet += packet; })},
    {"packet repeated twice", "continuity, section_gap",
     add({kSdt}, [](auto& packet) { packet += packet + packet; })},
    {"wrong CRC_32", "crc 4", add({kPat, kCat, kSdt, kPmt}, [](auto& p) { p[9] ^= 1; })},
    {"PMT on the PIDs of other tables", "table_id 4",
     add({{0x00, kPmt.hex}, {0x01, kPmt.hex}, {0x11, kPmt.hex}, {0x14, kPmt.hex}})},
    {"SDT other with the SDT, and SDT with the PMT", "",
     add({{kSdtPid, "46 f000 0002 c1 0000 0001 f0"}, {kPmt.pid, kSdt.hex}})},
    {"change without a new version, and back", "version 4",
     add({{kPatPid, kPat.hex + "0000 e010"}, kLongSdt})},
    {"PAT and PMT not in force yet for 600 ms", "repetition 2",
     [](auto& s) { s.pat.hex[14] = s.pmt.hex[14] = s.step / 4 == 10 ? '0' : '1'; }},
    {"PMT on an unannounced PID", "unannounced_pmt",
     [](auto& s) {
         if (s.step > 40 && s.step <= 46) s.sent.push_back(s.packets({0x0300, kPmt.hex}));
         if (s.step >= 50 && s.step <= 56)
             s.sent.push_back(s.packets({0x0310, kPmt.hex}));
     }},
    {"two PATs", "pat_alternates 13",
     [](auto& s) { s.pat.hex[14] = s.step > 40 && s.step % 4 == 1 ? '3' : '1'; }},
    {"PATs that change twice in a second, to a new service and later without it", "",
     [](auto& s) {
         if (s.step == 39) s.pat.hex[14] = '3';
         if (s.step == 41) s.pat.hex = "00 b000 0001 c5 0000 0007 e100 0008 e310";
         if (s.step == 59) s.pat.hex[14] = '9';
         if (s.step == 61) s.pat.hex = "00 b000 0001 cb 0000 0007 e100";
         if (s.step >= 42 && s.step <= 60 && s.step % 2 == 0)
             s.sent.push_back(s.packets({0x0310, "02 b000 0008 c1 0000 ffff f000"}));
     }},
    {"a PAT and one second later the one before", "",
     [](auto& s) { s.pat.hex[14] = s.step > 30 && s.step <= 42 ? '3' : '1'; }},
    {"PCR_PID without a stream for less than two seconds, and for longer", "consistency",
     [](auto& s) {
         if (s.step == 4) s.pmt.hex = "02 b000 0007 c3 0000 e200 f000";
         if (s.step == 22) s.pmt.hex = "02 b000 0007 c5 0000 ffff f000";
         if (s.step == 40) s.pmt.hex = "02 b000 0007 c7 0000 e200 f000";
         if (s.step == 51) s.pat.hex[14] = '3';
     }},
    {"PCR and scrambled packets on a PID without a stream, and no CAT", "",
     [](auto& s) {
         s.sent[0][188 + 3] |= '\x80';
         s.cat.hex[14] = '0';
         if (s.step == 40) s.pmt.hex = "02 b000 0007 c3 0000 e200 f000";
         s.sent.push_back(ts_packet(kVideoPid, s.video_counter - 1, "\x07\x10", 0x20));
     }},
    {"pause in a scrambled stream, which begins the wait for a CAT again, and a longer "
     "wait",
     "cat_missing, continuity 5, repetition 2, silence",
     [](auto& s) {
         s.pmt.hex = "02 b000 0007 c3 0000 ffff f000 1b e200 f000";
         s.sent[0][188 + 3] |= '\x80';
         if (s.step / 6 == 6) s.sent.clear();
         s.cat.hex[14] = s.step < 22 || s.step / 3 == 15 ? '1' : '0';
     }},
    {"TDT that stands still", "tdt_stands_still",
     [](auto& s) { s.tdt -= s.step > 40 && s.step % 10 == 0; }},
    {"TDT 5 s away for once, and then back", "tdt_goes_back, tdt_offset",
     [](auto& s) { s.tdt += 5 * (s.step == 40) - 5 * (s.step == 50); }},
};

TEST(StreamStatistics, FindsOneFaultInAStreamThatIsRightOtherwise) {
    for (const auto& [name, failing, edit] : kBreaks) {
        SCOPED_TRACE(name);
        RightStream stream;
        const std::int64_t utc_of_step_0 = 750516310 * kSecond;  // 12:45:10
        stream.statistics.set_civil_clock(utc_of_step_0, 4 * kSecond);
        for (; stream.step < 70; ++stream.step) {
            const std::int64_t now = 100 * kMs * stream.step;
            stream.make();
            edit(stream);
            stream.statistics.advance(now, 0);
            for (const std::string& datagram : stream.sent) stream.send(now, datagram);
        }
        EXPECT_EQ(stream.failing(7 * kSecond), failing);
        for (const auto& [fault, record] : stream.statistics.faults().records())
            EXPECT_GE(record.first, utc_of_step_0 + 3900 * kMs);
    }
}

TEST(StreamStatistics, FindsAStreamThatBeginsLateEndsEarlyOrIsLost) {
    for (const std::int64_t late_ms : {500, 501}) {
        Stream stream;
        stream.send(late_ms * kMs, kPat);
        EXPECT_EQ(stream.failing(late_ms * kMs), late_ms > 500 ? "silence" : "");
    }
    Stream rare;  // without a table of 500 ms
    rare.send(0, kSdt);
    EXPECT_EQ(rare.failing(2 * kSecond), "repetition") << "of the PAT";
    EXPECT_EQ(rare.failing(2 * kSecond + 1), "repetition 2, silence");
    rare.statistics.advance(3 * kSecond, 7);
    EXPECT_EQ(rare.failing(3 * kSecond), "lost 7, repetition 2, silence");
    Stream none;
    none.statistics.finish(0, 0);
    EXPECT_EQ(none.failing(kSecond), "reception");
}

TEST(StreamStatistics, KeepsItsMemoryBoundedInAHostileStream) {
    Stream stream;
    std::mt19937 random(1);
    std::int64_t now = 0;
    for (int i = 0; i < 40000; ++i) {
        const bool is_pat = i % 50 == 0;
        const auto service = random() & 0xFFFF;
        const auto pid = static_cast<std::uint16_t>(0x20 + random() % 8000);
        const std::string hex =
            is_pat ? fmt::format("00 b000 0001 {:02x} 0000 {:04x} {:04x}",
                                 0xC1 | i / 50 % 32 * 2, service, 0xE000 | pid)
                   : fmt::format("02 b000 {:04x} c1 {:02x}{:02x} ffff f000", service,
                                 i % 3, i % 3);
        stream.send(now += 10 * kMs, Section{is_pat ? kPatPid : pid, hex});
        stream.send(now, ts_packet(pid, i * 7));
    }
    std::size_t tables = 0, sections = 0;
    for (const auto& [number, on] : stream.statistics.pids()) {
        tables += on.tables.size();
        for (const auto& [key, table] : on.tables)
            sections += table.contents().sections().size();
    }
    EXPECT_LE(tables, 1010u);
    EXPECT_LE(sections, tables);
    EXPECT_LE(stream.statistics.faults().records().size(), FaultLog::kMaxFaults);
    EXPECT_GT(stream.statistics.faults().all(FaultKind::kUnannouncedPmt).total, 50u);
}

}  // namespace
