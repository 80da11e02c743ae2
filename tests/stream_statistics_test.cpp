#include "tools/stream_statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/section_limits.h"
#include "mux/slot_time.h"
#include "tables/section_packetizer.h"
#include "tools/stream_limits.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t kPmtPid = 0x0100;

struct Section {
    std::uint16_t pid;
    std::uint8_t table_id;
    std::uint16_t extension = 0;
    std::string payload = {};
    std::uint8_t number = 0;
    std::uint8_t last_number = 0;
    bool is_current = true;
    std::uint8_t version = 0;
};

const Section kPat{0x0000, 0x00, 1, std::string("\x00\x07\xE1\x00", 4)};
const Section kEmptyPat{0x0000, 0x00, 2, {}, 0, 0, true, 1};
const Section kCat{0x0001, 0x01};
const Section kSdt{0x0011, 0x42, 1};
const Section kLongSdt{0x0011, 0x42, 1, std::string(200, '\0'), 0, 0, true, 1};
const Section kTdt{0x0014, 0x70, 0, std::string("\xC0\x79\x12\x45\x59", 5)};
const Section kPmt{kPmtPid, 0x02, 7, std::string("\xFF\xFF\xF0\x00", 4)};

Section numbered(Section section, std::uint8_t number, std::uint8_t last_number) {
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
        const SectionsPtr built(dvbpsi_NewPSISection(kMaxSectionSize));
        built->i_table_id = section.table_id;
        built->b_syntax_indicator = is_long;
        built->i_extension = section.extension;
        built->i_version = section.version;
        built->b_current_next = section.is_current;
        built->i_number = section.number;
        built->i_last_number = section.last_number;
        built->i_length = static_cast<std::uint16_t>(section.payload.size() +
                                                     (is_long ? 5 + kCrc32Size : 0));
        built->p_payload_start = built->p_data + (is_long ? 8 : 3);
        built->p_payload_end = std::copy(section.payload.begin(), section.payload.end(),
                                         built->p_payload_start);
        dvbpsi_BuildPSISection(handle_.get(), built.get());
        const std::string cut = packetize_sections(built.get(), section.pid);
        std::vector<std::string> packets;
        for (std::size_t at = 0; at < cut.size(); at += kTsPacketSize) {
            const int counter = counters_[section.pid]++ & kContinuityMask;
            packets.push_back(cut.substr(at, kTsPacketSize));
            packets.back()[3] = static_cast<char>(kHasPayload | counter);
        }
        return packets;
    }

    void send(std::int64_t time, const Section& section) {
        for (const std::string& packet : packets(section)) send(time, packet);
    }

    void send(std::int64_t time, const std::string& datagram) {
        statistics_.push(time, reinterpret_cast<const std::uint8_t*>(datagram.data()),
                         datagram.size());
    }

    PidFigures on(std::uint16_t pid, std::int64_t now = 0) {
        for (const PidFigures& figures : statistics_.figures(now).pids) {
            if (figures.pid == pid) return figures;
        }
        return {};
    }

    // The checks that fail for the PID, at `now`.
    std::vector<std::string> failing(std::uint16_t pid, std::int64_t now = 0) {
        StreamFigures alone;
        alone.datagrams = 1;
        alone.pids = {on(pid, now)};
        std::vector<std::string> checks;
        for (const Violation& violation : find_violations(alone)) {
            checks.push_back(violation.check);
        }
        return checks;
    }

    StreamStatistics statistics_;

private:
    DvbpsiPtr handle_{dvbpsi_new(nullptr, DVBPSI_MSG_NONE)};
    std::map<std::uint16_t, int> counters_;
};

class RepetitionLimits
    : public StreamStatisticsTest,
      public testing::WithParamInterface<std::pair<Section, std::int64_t>> {};

TEST_P(RepetitionLimits, AreKeptUpToTheNanosecond) {
    const auto& [section, longest] = GetParam();
    send(0, section.pid == kPat.pid ? kCat : kPat);  // announces the PMT
    for (int i = 1; i <= 3; ++i) {
        EXPECT_THAT(failing(section.pid, i * longest), IsEmpty()) << i;
        EXPECT_THAT(failing(section.pid, i * longest + 1), ElementsAre("repetition"));
        send(i * longest + i / 3, section);
    }
    EXPECT_THAT(failing(section.pid, 3 * longest + 1), ElementsAre("repetition"));
}

TEST_P(RepetitionLimits, CountTheWaitForTheFirstSection) {
    const auto& [section, longest] = GetParam();
    send(0, section.pid == kPat.pid ? kCat : kPat);
    send(longest + 1, section);
    EXPECT_THAT(failing(section.pid, longest + 1), ElementsAre("repetition"));
}

INSTANTIATE_TEST_SUITE_P(Dvb, RepetitionLimits,
                         testing::Values(std::pair{kPat, 500 * kNsPerMs},
                                         std::pair{kPmt, 500 * kNsPerMs},
                                         std::pair{kSdt, 2 * kNsPerSecond},
                                         std::pair{kTdt, 30 * kNsPerSecond}));

TEST_F(StreamStatisticsTest, OnlyAWholeRightSectionInForceRefreshesItsTimer) {
    Section next = kPat;
    next.is_current = false;
    std::string damaged = packets(kPat)[0];
    damaged[12] ^= 1;
    send(0, damaged);
    send(0, numbered(kPat, 0, 1));
    send(1, numbered(kPat, 1, 1));
    send(300 * kNsPerMs, next);
    send(300 * kNsPerMs, numbered(kPat, 3, 2));
    send(400 * kNsPerMs, numbered(kPat, 0, 1));
    EXPECT_THAT(failing(0, 500 * kNsPerMs + 1), ElementsAre("crc"));
    EXPECT_THAT(failing(0, 500 * kNsPerMs + 2), ElementsAre("crc", "repetition"));
    send(500 * kNsPerMs, kEmptyPat);  // has no section 1 any more
    EXPECT_THAT(failing(0, 800 * kNsPerMs), ElementsAre("crc"));
}

TEST_F(StreamStatisticsTest, ExpectsPmtsWhileThePatAnnouncesThem) {
    send(0, kEmptyPat);
    send(0, kPmt);  // on a PID that nothing has announced
    EXPECT_THAT(on(kPmtPid).tables, IsEmpty());
    send(kNsPerSecond, kPat);
    send(kNsPerSecond, kPmt);
    EXPECT_TRUE(on(kPmtPid).tables.at(0).in_pat);
    send(kNsPerSecond + 400 * kNsPerMs, kEmptyPat);
    EXPECT_FALSE(on(kPmtPid).tables.at(0).in_pat);
    EXPECT_THAT(failing(kPmtPid, 10 * kNsPerSecond), IsEmpty());
    EXPECT_THAT(failing(kPat.pid, kNsPerSecond), ElementsAre("repetition"));
    Section changed = kPat;
    changed.payload[1] = 9;
    for (const Section& pat : {kPat, changed, changed}) send(2 * kNsPerSecond, pat);
    EXPECT_THAT(failing(kPat.pid), ElementsAre("repetition", "version"));
    EXPECT_FALSE(on(kPmtPid).tables.at(0).in_pat);
    EXPECT_EQ(on(kPmtPid).tables.at(1).service_id, 9);
    EXPECT_TRUE(on(kPmtPid).tables.at(1).in_pat);
}

TEST_F(StreamStatisticsTest, SectionsOfASiTableKeep25MsFromLastByteToFirst) {
    send(0, kSdt);
    const std::vector<std::string> two = packets(kLongSdt);
    send(25 * kNsPerMs, two.at(0));
    send(60 * kNsPerMs, two.at(1));
    EXPECT_THAT(failing(kSdt.pid), IsEmpty());
    EXPECT_EQ(on(kSdt.pid).tables.at(0).section_gaps.greatest, 25 * kNsPerMs);
    send(85 * kNsPerMs - 1, kSdt);
    EXPECT_THAT(failing(kSdt.pid), ElementsAre("section_gap"));
    send(0, kPat);
    send(0, kPat);
    EXPECT_THAT(failing(kPat.pid), IsEmpty()) << "no SI table";
}

TEST_F(StreamStatisticsTest, ReservedPidsCarryTheirTablesAlone) {
    for (const Section& section : {kPat, kCat, kSdt, kTdt}) {
        send(0, section);
        send(0, Section{section.pid, 0x72});  // an ST
        send(0, Section{section.pid, 0x4E});
        const bool has_st = section.pid >= kSdt.pid;
        EXPECT_EQ(on(section.pid).wrong_table_ids, has_st ? 1u : 2u) << section.pid;
        EXPECT_THAT(failing(section.pid), Contains("table_id"));
    }
}

TEST_F(StreamStatisticsTest, CountsLossesButNoAllowedRepeat) {
    const std::vector<std::string> cut = packets(kLongSdt);
    const std::uint16_t pid = kSdt.pid;
    send(0, cut[0] + cut[0] + cut[1] + cut[1]);
    EXPECT_THAT(failing(pid), IsEmpty());
    EXPECT_EQ(on(pid).tables.at(0).sections, 1u) << "repeats carry nothing new";
    send(0, cut[1]);
    EXPECT_EQ(on(pid).continuity_errors, 1u) << "the second repeat";
    send(0, cut[0]);
    EXPECT_EQ(on(pid).continuity_errors, 2u) << "an old counter";
    send(0, packets(kSdt)[0]);
    EXPECT_EQ(on(pid).continuity_errors, 3u) << "a packet is missing";
    EXPECT_THAT(failing(pid), Contains("continuity"));
}

TEST_F(StreamStatisticsTest, GivesRatesPeakJitterAndTime) {
    send(0, packets(kSdt)[0] + packets(kPat)[0]);
    send(kPeakWindowNs - 1, packets(kPat)[0]);
    send(kPeakWindowNs, packets(kPat)[0] + packets(kTdt)[0]);
    send(kPeakWindowNs + 20 * kNsPerMs, "not packets");
    send(kPeakWindowNs - 5, packets(kSdt)[0]);  // a stamp that goes back
    const StreamFigures figures = statistics_.figures(kNsPerSecond / 2);
    EXPECT_EQ(figures.malformed_datagrams, 1u);
    EXPECT_EQ(figures.packets_per_datagram.greatest, 2);
    EXPECT_DOUBLE_EQ(figures.bit_rate, 6 * 1504 / 0.5);
    EXPECT_DOUBLE_EQ(figures.peak_bit_rate, 4 * 1504 / 0.1);
    EXPECT_EQ(figures.jitter.greatest, kPeakWindowNs - 2);
    EXPECT_EQ(on(kSdt.pid).tables.at(0).repetition.intervals.least,
              kPeakWindowNs + 20 * kNsPerMs);
    EXPECT_EQ(on(kTdt.pid).tables.at(0).utc, "1993-10-13 12:45:59");
}

}  // namespace
