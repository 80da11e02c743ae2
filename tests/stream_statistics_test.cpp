#include "tools/stream_statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "framework/section_limits.h"
#include "mux/slot_time.h"
#include "tables/section_packetizer.h"
#include "tools/stream_limits.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t kOtherPid = 0x0200;
constexpr std::uint16_t kPmtPid = 0x0100;
constexpr std::uint16_t kServiceId = 7;

struct Section {
    std::uint16_t pid;
    std::uint8_t table_id;
    std::uint16_t extension = 0;
    std::string payload = {};
    int number = 0;
    int last_number = 0;
    bool is_current = true;
    std::uint8_t version = 0;
};

const Section kPat{0x0000, 0x00, 1, std::string("\x00\x07\xE1\x00", 4)};
const Section kEmptyPat{0x0000, 0x00, 2, {}, 0, 0, true, 1};
const Section kCat{0x0001, 0x01};
const Section kSdt{0x0011, 0x42, 1};
const Section kTdt{0x0014, 0x70, 0, std::string("\xC0\x79\x12\x45\x59", 5)};
const Section kPmt{kPmtPid, 0x02, kServiceId, std::string("\xFF\xFF\xF0\x00", 4)};

Section numbered(Section section, int number, int last_number) {
    section.number = number;
    section.last_number = last_number;
    return section;
}

// What a stream of sections that come at given times measures.
class StreamStatisticsTest : public testing::Test {
protected:
    // The packets of a section, their counters running on.
    std::vector<std::string> packets(const Section& section) {
        const bool is_long = section.table_id != 0x70 && section.table_id != 0x72;
        const std::size_t header = is_long ? 8 : 3;
        const SectionsPtr built(dvbpsi_NewPSISection(kMaxSectionSize));
        built->i_table_id = section.table_id;
        built->b_syntax_indicator = is_long;
        built->i_extension = section.extension;
        built->i_version = section.version;
        built->b_current_next = section.is_current;
        built->i_number = static_cast<std::uint8_t>(section.number);
        built->i_last_number = static_cast<std::uint8_t>(section.last_number);
        built->i_length = static_cast<std::uint16_t>(header - 3 + section.payload.size() +
                                                     (is_long ? kCrc32Size : 0));
        built->p_payload_start = built->p_data + header;
        built->p_payload_end = std::copy(section.payload.begin(), section.payload.end(),
                                         built->p_payload_start);
        dvbpsi_BuildPSISection(handle_.get(), built.get());
        const std::string cut = packetize_sections(built.get(), section.pid);
        std::vector<std::string> numbered;
        for (std::size_t at = 0; at < cut.size(); at += kTsPacketSize) {
            numbered.push_back(cut.substr(at, kTsPacketSize));
            const int counter = counters_[section.pid]++ & kContinuityMask;
            numbered.back()[3] = static_cast<char>(kHasPayload | counter);
        }
        return numbered;
    }

    void send(std::int64_t time, const Section& section) {
        for (const std::string& packet : packets(section)) send(time, packet);
    }

    void send(std::int64_t time, const std::string& datagram) {
        statistics_.push(time, reinterpret_cast<const std::uint8_t*>(datagram.data()),
                         datagram.size());
    }

    // The checks that fail for the PID, at `now`.
    std::vector<std::string> failing(std::uint16_t pid, std::int64_t now) {
        char prefix[16];
        std::snprintf(prefix, sizeof prefix, "PID 0x%04X:", pid);
        std::vector<std::string> checks;
        for (const Violation& violation : find_violations(statistics_.figures(now))) {
            if (violation.text.rfind(prefix, 0) == 0) checks.push_back(violation.check);
        }
        return checks;
    }

    PidFigures on(std::uint16_t pid, std::int64_t now) {
        for (const PidFigures& figures : statistics_.figures(now).pids) {
            if (figures.pid == pid) return figures;
        }
        return {};
    }

    StreamStatistics statistics_;

private:
    DvbpsiPtr handle_{dvbpsi_new(nullptr, DVBPSI_MSG_NONE)};
    std::map<std::uint16_t, int> counters_;
};

struct Limit {
    Section section;
    std::int64_t longest;
};

class RepetitionLimits : public StreamStatisticsTest,
                         public testing::WithParamInterface<Limit> {};

TEST_P(RepetitionLimits, AreKeptUpToTheNanosecond) {
    const auto& [section, longest] = GetParam();
    const std::uint16_t pid = section.pid;
    send(0, section.pid == kPat.pid ? kCat : kPat);  // the start, which announces the PMT
    EXPECT_THAT(failing(pid, longest), IsEmpty()) << "not yet missing";
    EXPECT_THAT(failing(pid, longest + 1), ElementsAre("repetition")) << "missing";
    send(longest, section);
    EXPECT_THAT(failing(pid, 2 * longest), IsEmpty()) << "not yet away";
    EXPECT_THAT(failing(pid, 2 * longest + 1), ElementsAre("repetition")) << "away";
    send(2 * longest, section);
    EXPECT_THAT(failing(pid, 2 * longest), IsEmpty()) << "repeated in time";
    send(3 * longest + 1, section);
    EXPECT_THAT(failing(pid, 3 * longest + 1), ElementsAre("repetition")) << "late";
}

TEST_P(RepetitionLimits, CountTheWaitForTheFirstSection) {
    const auto& [section, longest] = GetParam();
    send(0, section.pid == kPat.pid ? kCat : kPat);
    send(longest + 1, section);
    EXPECT_THAT(failing(section.pid, longest + 1), ElementsAre("repetition"));
}

INSTANTIATE_TEST_SUITE_P(Dvb, RepetitionLimits,
                         testing::Values(Limit{kPat, 500 * kNsPerMs},
                                         Limit{kPmt, 500 * kNsPerMs},
                                         Limit{kSdt, 2 * kNsPerSecond},
                                         Limit{kTdt, 30 * kNsPerSecond}));

TEST_F(StreamStatisticsTest, OnlyAWholeRightSectionInForceRefreshesATable) {
    Section damaged = kPat;
    Section next = kPat;
    next.is_current = false;
    Section beyond = numbered(kPat, 3, 2);
    send(0, kPat);
    std::string packet = packets(damaged)[0];
    packet[12] ^= 1;
    send(300 * kNsPerMs, packet);
    send(310 * kNsPerMs, next);
    send(320 * kNsPerMs, beyond);
    EXPECT_THAT(failing(0, 500 * kNsPerMs), ElementsAre("crc"));
    EXPECT_THAT(failing(0, 501 * kNsPerMs), ElementsAre("crc", "repetition"));
}

TEST_F(StreamStatisticsTest, EachSectionOfATableHasATimerAsLongAsTheTableHasIt) {
    const std::int64_t step = 400 * kNsPerMs;
    send(0, numbered(kPat, 0, 1));
    send(1, numbered(kPat, 1, 1));
    send(step, numbered(kPat, 0, 1));
    EXPECT_THAT(failing(0, 500 * kNsPerMs + 1), IsEmpty());
    EXPECT_THAT(failing(0, 500 * kNsPerMs + 2), ElementsAre("repetition"));
    send(step + 1, kEmptyPat);  // has no section 1 any more
    send(2 * step, kEmptyPat);
    EXPECT_THAT(failing(0, 2 * step), IsEmpty());
}

TEST_F(StreamStatisticsTest, PmtsAreExpectedWhileThePatAnnouncesThem) {
    send(0, kEmptyPat);
    send(0, kPmt);  // on a PID that nothing has announced
    EXPECT_THAT(on(kPmtPid, 0).tables, IsEmpty());
    send(kNsPerSecond, kPat);
    send(kNsPerSecond, kPmt);
    EXPECT_TRUE(on(kPmtPid, kNsPerSecond).tables.at(0).in_pat);
    send(kNsPerSecond + 400 * kNsPerMs, kEmptyPat);
    EXPECT_FALSE(on(kPmtPid, 10 * kNsPerSecond).tables.at(0).in_pat);
    EXPECT_THAT(failing(kPmtPid, 10 * kNsPerSecond), IsEmpty());
    Section other = kPmt;
    other.extension = 8;
    send(10 * kNsPerSecond, other);
    EXPECT_EQ(on(kPmtPid, 10 * kNsPerSecond).tables.at(1).service_id, 8);
    EXPECT_THAT(failing(kPmtPid, 20 * kNsPerSecond), IsEmpty());
}

TEST_F(StreamStatisticsTest, FollowsAPatThatChangesWithoutAVersion) {
    Section changed = kPat;
    changed.payload[1] = 9;
    for (const Section& pat : {kPat, kPat, kEmptyPat, kPat}) send(0, pat);
    EXPECT_THAT(failing(kPat.pid, 0), IsEmpty());
    for (const Section& pat : {changed, changed}) send(0, pat);
    EXPECT_THAT(failing(kPat.pid, 0), ElementsAre("version"));
    const std::vector<TableFigures> pmts = on(kPmtPid, 0).tables;
    EXPECT_FALSE(pmts.at(0).in_pat);
    EXPECT_EQ(pmts.at(1).service_id, 9);
    EXPECT_TRUE(pmts.at(1).in_pat);
}

TEST_F(StreamStatisticsTest, SectionsOfASiTableKeep25MsFromLastByteToFirst) {
    Section long_sdt = kSdt;
    long_sdt.payload.assign(300, '\0');
    std::int64_t now = 0;
    const auto send_after = [&](std::int64_t gap) {
        const std::vector<std::string> two = packets(long_sdt);
        send(now += gap, two.at(0));
        send(now += kNsPerMs, two.at(1));
    };
    send_after(0);
    send_after(25 * kNsPerMs);
    EXPECT_THAT(failing(kSdt.pid, now), IsEmpty());
    send_after(25 * kNsPerMs - 1);
    EXPECT_THAT(failing(kSdt.pid, now), ElementsAre("section_gap"));
    send(now, kPat);
    send(now, kPat);
    EXPECT_THAT(failing(kPat.pid, now), IsEmpty()) << "no SI table";
}

// The first packet has a section that goes on in the second, where a pointer_field leads
// from its remainder to another one.
TEST_F(StreamStatisticsTest, MeasuresSectionGapsWhereSectionsShareAPacket) {
    const std::string another = packets(kSdt)[0];
    Section long_sdt = kSdt;
    long_sdt.payload.assign(200, '\0');
    const std::size_t remainder = 8 + 200 + kCrc32Size - 183;
    const std::vector<std::string> two = packets(long_sdt);
    std::string shared = two.at(1);
    shared[1] = static_cast<char>(shared[1] | kPayloadUnitStart);
    shared.insert(4, 1, static_cast<char>(remainder));
    shared.replace(5 + remainder, std::string::npos, another.substr(5));
    shared.resize(kTsPacketSize);
    send(0, another);
    send(50 * kNsPerMs, two.at(0));
    send(60 * kNsPerMs, shared);
    EXPECT_EQ(on(kSdt.pid, 0).tables.at(0).section_gaps.greatest, 50 * kNsPerMs);
    EXPECT_EQ(on(kSdt.pid, 0).tables.at(0).section_gaps.least, 0);

    std::string later = packets(kSdt)[0].insert(4, std::string("\x02\xFF", 2));
    later.resize(kTsPacketSize);
    send(160 * kNsPerMs, later);
    EXPECT_EQ(on(kSdt.pid, 0).tables.at(0).section_gaps.greatest, 100 * kNsPerMs);
}

TEST_F(StreamStatisticsTest, ReservedPidsCarryTheirTablesAlone) {
    const std::map<std::uint16_t, std::set<int>> allowed = {
        {0x0000, {0x00}},
        {0x0001, {0x01}},
        {0x0011, {0x42, 0x46, 0x4A, 0x72}},
        {0x0014, {0x70, 0x72, 0x73}}};
    for (const auto& [pid, table_ids] : allowed) {
        for (int id = 0; id < 0xFF; ++id) {
            const std::uint64_t before = on(pid, 0).wrong_table_ids;
            send(0, Section{pid, static_cast<std::uint8_t>(id)});
            EXPECT_EQ(on(pid, 0).wrong_table_ids - before, 1 - table_ids.count(id))
                << "table " << id << " on PID " << pid;
        }
        EXPECT_THAT(failing(pid, 0), Contains("table_id"));
    }
}

TEST_F(StreamStatisticsTest, CountsLossesButNoAllowedRepeat) {
    Section three_packets{kPat};
    three_packets.payload.assign(400, '\0');
    const std::vector<std::string> cut = packets(three_packets);
    send(0, cut[0] + cut[0] + cut[1] + cut[1] + cut[2]);
    EXPECT_EQ(on(0, 0).continuity_errors, 0u);
    EXPECT_EQ(on(0, 0).tables.at(0).sections, 1u) << "repeats carry nothing new";
    send(0, cut[2] + cut[2]);
    EXPECT_EQ(on(0, 0).continuity_errors, 1u) << "the second repeat";
    std::string unlike = cut[2];
    unlike[100] ^= 1;
    send(0, packets(kPat)[0] + unlike);
    EXPECT_EQ(on(0, 0).continuity_errors, 2u) << "an old counter";
    packets(kPat);
    send(0, kPat);
    EXPECT_EQ(on(0, 0).continuity_errors, 3u) << "a packet is missing";
    EXPECT_THAT(failing(0, 0), Contains("continuity"));
}

TEST_F(StreamStatisticsTest, GivesRatesPeakJitterAndTime) {
    send(0, packets(kSdt)[0] + packets(kPat)[0]);
    send(kPeakWindowNs - 1, packets(kPat)[0]);
    send(kPeakWindowNs, packets(kPat)[0] + packets(kTdt)[0]);
    send(kPeakWindowNs + 20 * kNsPerMs, "not packets");
    send(kPeakWindowNs - 5, packets(kSdt)[0]);  // a stamp that goes back
    const StreamFigures figures = statistics_.figures(kNsPerSecond / 2);
    EXPECT_EQ(figures.datagrams, 5u);
    EXPECT_EQ(figures.malformed_datagrams, 1u);
    EXPECT_EQ(figures.packets, 6u);
    EXPECT_EQ(figures.packets_per_datagram.greatest, 2);
    EXPECT_DOUBLE_EQ(figures.bit_rate, 6 * 1504 / 0.5);
    EXPECT_DOUBLE_EQ(figures.peak_bit_rate, 4 * 1504 / 0.1);
    EXPECT_EQ(figures.jitter.count, 1u);
    EXPECT_EQ(figures.jitter.greatest, kPeakWindowNs - 2);
    EXPECT_EQ(on(kSdt.pid, 0).tables.at(0).repetition.intervals.least,
              kPeakWindowNs + 20 * kNsPerMs);
    EXPECT_EQ(on(kTdt.pid, 0).tables.at(0).utc, "1993-10-13 12:45:59");
}

TEST_F(StreamStatisticsTest, TakesAnythingFromTheWire) {
    std::mt19937 random(1);
    send(0, kPat);
    for (int i = 0; i < 20000; ++i) {
        std::string packet(kTsPacketSize, '\0');
        for (char& byte : packet) byte = static_cast<char>(random());
        packet[0] = kSyncByte;
        packet[1] = static_cast<char>(random() & 0x41);
        packet[2] = "\x00\x01\x11\x14"[random() % 4];
        if (i % 2 == 0) packet.replace(4, 3, std::string("\x00\x02\xB0", 3));
        send(i, packet);
    }
    EXPECT_EQ(statistics_.figures(20000).packets, 20001u);
    EXPECT_THAT(find_violations(StreamStatistics().figures(0)).at(0).check, "reception");
}

}  // namespace
