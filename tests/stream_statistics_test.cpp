#include "tools/kestan-monitor/stream_statistics.h"

#include <arpa/inet.h>

#include <random>

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tables/section_packetizer.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/stream_limits.h"

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

    // What has failed on the section's PID, at `now`.
    Checks failing(const Section& section, std::int64_t now) {
        Checks checks;
        for (const auto& [check, text] : find_violations(statistics.figures(now))) {
            if (text.rfind("PID " + hex_number(section.pid, 4) + ": ", 0) != 0) continue;
            checks[check] = std::max(1, std::atoi(&text[text.rfind(": ") + 2]));
        }
        return checks;
    }

    StreamStatistics statistics;
    std::map<int, int> counters;
};

// One table's sections at times to a nanosecond of what is allowed: every other one is
// right, the others may have a fault. What must be found is counted along.
TEST(StreamStatistics, FindsJustTheFaultsThatAreThere) {
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
                ++wrong["continuity"];  // and a section anew, where it is a whole one
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
        ASSERT_EQ(stream.failing(section, now), wrong) << round;
    }
}

TEST(StreamStatistics, FollowsThePatInForce) {
    const Section first{kPat.pid, "00 b000 0001 c1 0001 0007 e100"};
    const Section second{kPat.pid, "00 b000 0001 c1 0101 0008 e100"};
    const Section changed{kPat.pid, "00 b000 0002 c3 0000 0009 e100"};
    Stream stream;
    stream.send(0, kEmptyPat);
    stream.send(0, kPmt);
    EXPECT_EQ(stream.statistics.figures(0).pids.back().tables.size(), 0u);
    stream.send(0, first);
    stream.send(1, second);
    stream.send(1, Section{kPat.pid, "00 b000 0001 c1 0302 0008 e100"});  // of no table
    stream.send(400 * kNsPerMs, first);
    EXPECT_EQ(stream.failing(kPat, 500 * kNsPerMs + 1), Checks());
    EXPECT_EQ(stream.failing(kPat, 500 * kNsPerMs + 2), (Checks{{"repetition", 1}}));
    stream.send(500 * kNsPerMs, kEmptyPat);
    EXPECT_EQ(stream.failing(kPat, 800 * kNsPerMs), Checks()) << "it has one section now";
    EXPECT_EQ(stream.failing(kPmt, 9 * kNsPerSecond), Checks()) << "it has no PMT now";
    for (const Section& pat : {changed, changed}) stream.send(800 * kNsPerMs, pat);
    for (const Section& with_st : {kSdt, kTdt}) {
        stream.send(1, Section{with_st.pid, "72 7001 00"});
        EXPECT_EQ(stream.failing(with_st, 1), Checks());
    }
    const std::vector<TableFigures> pmts =
        stream.statistics.figures(0).pids.back().tables;
    EXPECT_TRUE(!pmts.at(0).in_pat && !pmts.at(1).in_pat && pmts.at(2).in_pat);
}

TEST(StreamStatistics, GivesRatesPeakJitterAndTime) {
    Stream stream;
    stream.send(0, stream.packets(kSdt) + stream.packets(kPat));
    stream.send(kPeakWindowNs - 1, kPat);
    stream.send(kPeakWindowNs, stream.packets(kPat) + stream.packets(kTdt));
    stream.send(kPeakWindowNs + 20 * kNsPerMs, "not packets");
    stream.send(kPeakWindowNs - 5, kSdt);  // a stamp that goes back
    const StreamFigures figures = stream.statistics.figures(kNsPerSecond / 2);
    EXPECT_EQ(figures.malformed_datagrams, 1u);
    EXPECT_DOUBLE_EQ(figures.bit_rate, 6 * 1504 / 0.5);
    EXPECT_DOUBLE_EQ(figures.peak_bit_rate, 4 * 1504 / 0.1);
    EXPECT_EQ(figures.jitter.greatest, kPeakWindowNs - 2);
    EXPECT_EQ(figures.pids.at(2).tables[0].utc, "1993-10-13 12:45:59");
}

}  // namespace
