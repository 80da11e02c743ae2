#include "tables/tdt_table.h"

#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/fake_framework.h"
#include "tests/support/simulated_clock.h"

namespace {

// Each second has what the framework's clock says and whether a TDT must be sent.
TEST(TdtTable, CarriesTheTimeOncePerSecondOnceTheClockIsSet) {
    constexpr std::int64_t time = 0xC079124500;
    std::vector<std::tuple<int, std::int64_t, bool>> seconds{
        {-1, time, false}, {0, time, true}, {-1, time, true},
        {0, 0, false},     {0, -1, false},  {0, 1, true},
    };
    seconds.resize(40, {0, time | std::int64_t{0x5A} << 40, true});  // above UTC_time
    fake_framework::clock = {-1, 0, 0};
    TDTTable tdt;
    std::int64_t due = simulated_clock::now_ns();
    std::uint8_t packet[kTsPacketSize];
    int sent = 0;
    for (const auto& [is_set, utc, is_sent] : seconds) {
        fake_framework::clock.is_set = is_set;
        fake_framework::clock.utc = utc;
        ASSERT_FALSE(tdt.next_packet(packet, due - 1));
        ASSERT_EQ(tdt.next_packet(packet, due + sent % 2 * 9), is_sent);  // late, or not
        due += kNsPerSecond;
        if (!is_sent) continue;
        std::string expected("\x47\x40\x14\x10\x00\x70\x70\x05", 8);
        expected[3] = static_cast<char>(0x10 | sent++ % 16);
        for (int shift = 32; shift >= 0; shift -= 8) {
            expected += static_cast<char>(utc >> shift);
        }
        expected.resize(kTsPacketSize, '\xFF');
        ASSERT_EQ(std::string(packet, packet + kTsPacketSize), expected);
    }
    EXPECT_EQ(fake_framework::clock.set_asked, 3u);  // no more once it is set
    TDTTable set_at_the_start;
    fake_framework::clock.is_set = -1;
    EXPECT_TRUE(set_at_the_start.next_packet(packet, due));
}

}  // namespace
