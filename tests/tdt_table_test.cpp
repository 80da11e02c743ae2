#include "tables/tdt_table.h"

#include <gtest/gtest.h>

#include "tests/support/fake_framework.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

class TdtTable : public testing::Test {
protected:
    void SetUp() override { fake_framework::clock = {}; }

    std::uint8_t packet_[kTsPacketSize] = {};
};

TEST_F(TdtTable, CarriesTheTimeOncePerSecondFromTheStart) {
    TDTTable tdt;
    const std::int64_t start = now_ns();
    fake_framework::clock.utc |= std::int64_t{0x5A} << 40;  // no bit of the UTC_time
    for (int second = 0; second < 40; ++second) {
        const std::int64_t due = start + second * kNsPerSecond;
        ASSERT_FALSE(tdt.next_packet(packet_, due - 1));
        ASSERT_TRUE(tdt.next_packet(packet_, due));
        std::string expected("\x47\x40\x14\x10\x00\x70\x70\x05\xC0\x79\x12\x45\x00", 13);
        expected[3] = static_cast<char>(0x10 | second % 16);
        expected.resize(kTsPacketSize, '\xFF');
        ASSERT_EQ(std::string(packet_, packet_ + kTsPacketSize), expected);
    }
    EXPECT_EQ(fake_framework::clock.set_asked, 1u);
}

TEST_F(TdtTable, WaitsForTheSystemClockAndAsksNoMoreOnceItIsSet) {
    fake_framework::clock.is_set = -1;
    TDTTable tdt;
    const std::int64_t start = now_ns();
    EXPECT_FALSE(tdt.next_packet(packet_, start));
    EXPECT_FALSE(tdt.next_packet(packet_, start + kNsPerSecond / 2));
    fake_framework::clock.is_set = 0;
    EXPECT_FALSE(tdt.next_packet(packet_, start + kNsPerSecond - 1));
    EXPECT_EQ(fake_framework::clock.set_asked, 2u);
    EXPECT_TRUE(tdt.next_packet(packet_, start + kNsPerSecond));
    EXPECT_EQ(packet_[3] & kContinuityMask, 0);
    fake_framework::clock.is_set = -1;
    EXPECT_TRUE(tdt.next_packet(packet_, start + 2 * kNsPerSecond));
    EXPECT_EQ(fake_framework::clock.set_asked, 3u);
}

TEST_F(TdtTable, LeavesOutASecondWithoutATime) {
    TDTTable tdt;
    const std::int64_t start = now_ns();
    for (const std::int64_t none : {0, -1}) {
        fake_framework::clock.utc = none;
        EXPECT_FALSE(tdt.next_packet(packet_, start + kNsPerSecond));
    }
    fake_framework::clock.utc = 1;
    EXPECT_FALSE(tdt.next_packet(packet_, start + 2 * kNsPerSecond - 1));
    EXPECT_TRUE(tdt.next_packet(packet_, start + 2 * kNsPerSecond));
}

}  // namespace
