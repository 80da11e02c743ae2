#include "tools/kestan-monitor/stream_statistics.h"

#include <arpa/inet.h>

#include <functional>
#include <random>

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tables/section_packetizer.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/text_format.h"

namespace {

struct Section {
    std::uint16_t pid;
    std::string hex;           // but for section_length and CRC_32
    std::int64_t longest = 0;  // interval allowed
    std::int64_t gap = 0;      // least one asked
};

const Section kPat{0x0000, "00 b000 0001 c1 0000 0007 e100", 500 * kNsPerMs};
const Section kCat{0x0001, "01 b000 ffff c1 0000 0904 0b00 e123"};
const Section kSdt{0x0011, "42 f000 0001 c1 0000 0001 f0", 2000 * kNsPerMs,
                   25 * kNsPerMs};
const Section kTdt{0x0014, "70 7000 c079 124559", 30 * kNsPerSecond, 25 * kNsPerMs};
const Section kPmt{0x0100, "02 b000 0007 c1 0000 ffff f000", 500 * kNsPerMs};
const Section kEmptyPat{0x0000, "00 b000 0002 c3 0000"};

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

using Checks = std::map<std::string, int>;  // how often each has failed

struct Stream {
    // The packets of a section, their counters running on.
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

    // What has failed by `now`, on the section's PID or anywhere. Of what lasts, the
    // number is 1.
    Checks failing(std::int64_t now, const Section* on = nullptr) {
        statistics.advance(now, 0);
        Checks checks;
        for (const auto& [fault, record] : statistics.faults().records()) {
            if (on != nullptr && fault.pid != on->pid) continue;
            const std::string check = check_name(fault.kind);
            const bool lasts = fault.kind == FaultKind::silence ||
                               check == "repetition" || check == "section_gap";
            checks[check] = lasts ? 1 : checks[check] + static_cast<int>(record.count);
        }
        return checks;
    }

    StreamStatistics statistics{0};
    std::map<int, int> counters;
};

// One table's sections at times to a nanosecond of what is allowed: every other one is
// right, the others may have a fault. What must be found is counted along.
TEST(StreamStatistics, ReportsEachFaultThatIsPutInAndNoOther) {
    const std::string faults[] = {"continuity", "table_id", "crc",    "next",
                                  "version",    "new",      "repeat", "repeats"};
    const std::set<std::string> hiding(faults, faults + 4);
    std::mt19937 random(1);
    for (int round = 0; round < 5000; ++round) {
        Section section = std::array{kPat, kPmt, kSdt, kTdt, kCat}[random() % 5];
        auto& [pid, hex, allowed, gap] = section;
        const auto kinds = pid == kTdt.pid ? 2 : std::size(faults);
        if (kinds > 2 && random() % 2 == 0) hex.append(400, '0');  // two packets
        const std::int64_t pauses[] = {gap - (gap > 0), gap, allowed, allowed + 1};
        Stream stream;
        stream.send(0, pid == kPat.pid ? kCat : kPat);  // announces the PMT
        Checks wrong;
        std::int64_t now = 0, last = 0, longest = 0;
        for (auto i = random() % 8 * 2 + 1; i != 0; --i) {
            const std::int64_t start = now += pauses[random() % 4];
            const std::string fault = i % 2 != 0 ? "" : faults[random() % kinds];
            if (fault == "version") hex.back() ^= 1;
            if (fault == "new") hex[14] ^= 2;
            Section sent = section;
            if (fault == "table_id") sent.hex[0] ^= 4;
            if (fault == "next") sent.hex[14] ^= 1;
            std::string cut = stream.packets(sent);
            if (fault == "crc") cut[9] ^= 1;
            if (fault == "continuity")
                cut.erase(random() % (cut.size() / kTsPacketSize) * kTsPacketSize,
                          kTsPacketSize);
            for (std::size_t at = 0; at < cut.size(); at += kTsPacketSize) {
                now = start + static_cast<int>(at);
                stream.send(now, cut.substr(at, kTsPacketSize));
                if (fault.rfind("repeat", 0) != 0) continue;
                stream.send(now, cut.substr(at, kTsPacketSize));  // one is allowed
                if (fault != "repeats") continue;
                stream.send(now, cut.substr(at, kTsPacketSize));
                ++wrong["continuity"];  // and the section again if it is whole
                if (cut.size() == kTsPacketSize && gap > 0) wrong["section_gap"] = 1;
            }
            ++wrong[fault];
            if (hiding.count(fault) != 0) continue;
            longest = std::max(longest, now - last);
            if (last > 0 && start - last < gap) wrong["section_gap"] = 1;
            last = now;
        }
        now += pauses[random() % 4];
        if (std::max(longest, now - last) > allowed) wrong["repetition"] = 1;
        for (const char* const right : {"", "next", "new", "repeat", "repeats"})
            wrong.erase(right);
        if (pid == kPmt.pid) wrong.erase("table_id");
        if (pid == kCat.pid) wrong.erase("repetition");
        Checks found = stream.failing(now, &section);
        for (const char* const other : {"pat_alternates", "tdt_stands_still"})
            found.erase(other);
        ASSERT_EQ(found, wrong) << round;
    }
}

TEST(StreamStatistics, FollowsThePatInForce) {
    const Section first{kPat.pid, "00 b000 0001 c1 0001 0007 e100"};
    const Section second{kPat.pid, "00 b000 0001 c1 0101 0008 e100"};
    const Section changed{kPat.pid, "00 b000 0002 c3 0000 0009 e100"};
    Stream stream;
    stream.send(0, Section{kPat.pid, "00 b000 0002 c5 0000"});
    stream.send(0, kPmt);
    stream.send(0, first);
    stream.send(1, second);
    stream.send(1, Section{kPat.pid, "00 b000 0001 c1 0302 0008 e100"});  // of no table
    stream.send(400 * kNsPerMs, first);
    EXPECT_EQ(stream.failing(500 * kNsPerMs + 1, &kPat), Checks());
    EXPECT_EQ(stream.failing(500 * kNsPerMs + 2, &kPat), (Checks{{"repetition", 1}}));
    const auto missing = stream.failing(500 * kNsPerMs + 2, &kPmt);
    EXPECT_EQ(missing, (Checks{{"repetition", 1}})) << "of service 8";
    stream.send(500 * kNsPerMs, kEmptyPat);
    EXPECT_EQ(stream.failing(800 * kNsPerMs, &kPat).size(), 1u)
        << "it has one section now";
    EXPECT_EQ(stream.failing(9 * kNsPerSecond, &kPmt), missing) << "it has no PMT now";
    stream.send(9 * kNsPerSecond, changed);
    const auto& pmts = stream.statistics.pids().at(kPmt.pid).tables;
    ASSERT_EQ(pmts.size(), 2u);
    EXPECT_FALSE(pmts.at({TableType::pmt, 7}).is_announced());
    EXPECT_TRUE(pmts.at({TableType::pmt, 9}).is_announced());
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
    const auto& tdt = stream.statistics.pids().at(kTdt.pid).tables.at({TableType::tdt});
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
        if (step % 5 == 1) datagram += packets(kCat) + packets(kSdt);
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

const Break kBreaks[] = {
    {"lost sync byte", flip(0, 0, 1), {{"sync_byte", 1}}},
    {"transport_error_indicator", flip(2, 1, 0x80), {{"transport_error", 1}}},
    {"scrambled PMT", flip(3, 3, 0x80), {{"scrambled", 1}}},
    {"scrambled video", flip(1, 3, 0x80), {}},
    {"no packets",
     once([](auto&, auto& sent) { sent.push_back("no packets"); }),
     {{"malformed", 1}}},
    {"RTP",
     [](auto&, int, auto& sent) {
         sent[0].insert(0, std::string("\xb1!", 2) + std::string(14, '\0') +
                               std::string("\0\0\0\1", 4) + "abcd");
         sent[0] += std::string("\0\0\3", 3);
     },
     {}},
    {"204-byte packets",
     once([](auto&, auto& sent) {
         for (std::size_t at = 188; at <= sent[0].size(); at += 204)
             sent[0].insert(at, 16, 'x');
     }),
     {{"coded_packets", 1}}},
    {"lost video packet",
     once([](auto& stream, auto&) { ++stream.video_counter; }),
     {{"continuity", 1}}},
    {"lost packet behind a discontinuity_indicator",
     once([](auto& stream, auto& sent) {
         sent.push_back(stream.packet(0x0200, stream.video_counter += 3, 0x30));
         sent.back().replace(4, 2, "\1\x80");
         ++stream.video_counter;
     }),
     {}},
    {"packet without payload",
     once([](auto& stream, auto& sent) {
         sent.push_back(stream.packet(0x0200, stream.video_counter - 1, 0x20));
     }),
     {}},
    {"packet without payload that counts",
     once([](auto& stream, auto& sent) {
         sent.push_back(stream.packet(0x0200, stream.video_counter++, 0x20));
     }),
     {{"continuity", 1}}},
    {"repeated counter with another content",
     once([](auto& stream, auto& sent) {
         sent.push_back(stream.packet(0x0200, stream.video_counter - 1));
         sent.back().back() = 1;
     }),
     {{"continuity", 1}}},
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
    none.statistics.finish();
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
        for (const auto& [key, table] : on.tables) sections += table.contents().size();
    }
    EXPECT_LE(tables, 1010u);
    EXPECT_LE(sections, tables);
    EXPECT_LE(stream.statistics.faults().records().size(), FaultLog::kMaxFaults);
    EXPECT_GT(stream.failing(now).at("unannounced_pmt"), 50);
}

}  // namespace
