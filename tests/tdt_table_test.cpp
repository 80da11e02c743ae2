#include "tables/tdt_table.h"

#include <gtest/gtest.h>

#include "tests/support/fake_framework.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

TEST(TdtTable, CarriesTheTimeOncePerSecondFromTheStart) {
    fake_framework::clock = {};
    fake_framework::clock.utc |= std::int64_t{0x5A} << 40;  // no bit of the UTC_time
    TDTTable tdt;
    std::uint8_t packet[kTsPacketSize];
    for (int second = 0; second < 40; ++second) {
        const std::int64_t due = now_ns() + second * kNsPerSecond;
        ASSERT_FALSE(tdt.next_packet(packet, due - 1));
        ASSERT_TRUE(tdt.next_packet(packet, due + second % 2 * 9));  // late, or not
        std::string expected("\x47\x40\x14\x10\x00\x70\x70\x05\xC0\x79\x12\x45\x00", 13);
        expected[3] = static_cast<char>(0x10 | second % 16);
        expected.resize(kTsPacketSize, '\xFF');
        ASSERT_EQ(std::string(packet, packet + kTsPacketSize), expected);
    }
    EXPECT_EQ(fake_framework::clock.set_asked, 1u);
}

// Each second has what the framework's clock says and whether a TDT must be sent.
TEST(TdtTable, WaitsForTheClockToBeSetAndLeavesOutSecondsWithoutATime) {
    const std::tuple<int, std::int64_t, bool> seconds[] = {
        {-1, 5, false}, {0, 5, true},   {-1, 5, true},
        {0, 0, false},  {0, -1, false}, {0, 1, true},
    };
    fake_framework::clock = {};
    fake_framework::clock.is_set = -1;
    TDTTable tdt;
    std::int64_t due = now_ns();
    std::uint8_t packet[kTsPacketSize];
    int counter = 0x10;
    for (const auto& [is_set, utc, is_sent] : seconds) {
        fake_framework::clock.is_set = is_set;
        fake_framework::clock.utc = utc;
        EXPECT_FALSE(tdt.next_packet(packet, due - 1));
        EXPECT_EQ(tdt.next_packet(packet, due), is_sent);
        EXPECT_EQ(packet[3], is_sent ? counter++ : packet[3]);
        EXPECT_FALSE(tdt.next_packet(packet, due + kNsPerSecond / 2));
        due += kNsPerSecond;
    }
    EXPECT_EQ(fake_framework::clock.set_asked, 3u);  // no more once it is set
}

}  // namespace
