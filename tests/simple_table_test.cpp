#include "tables/simple_table.h"

#include <gtest/gtest.h>

#include "mux/slot_time.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

void replace(SimpleTable& table, char name, int packets) {
    std::string buffer = named_packets(name, std::vector<int>(packets, 1));
    table.replace_packets(buffer);
}

TEST(SimpleTable, SpreadsItsPacketsEvenlyOverThePeriod) {
    const std::tuple<std::int64_t, int, std::int64_t> cases[] = {
        {200 * kNsPerMs, 1, 200000000},
        {500 * kNsPerMs, 3, 166666666},  // truncated, not rounded
        {500 * kNsPerMs, 2000, 250000},
    };
    for (const auto& [period, packets, spacing] : cases) {
        SimpleTable table(0x11, period);
        replace(table, 'A', packets);
        std::int64_t due = now_ns();
        for (int i = 0; i < 3 * packets; ++i, due += spacing) {
            ASSERT_EQ(next_name(table, due - 1), "-");
            ASSERT_EQ(next_name(table, due), "A" + std::to_string(i % packets));
        }
    }
}

TEST(SimpleTable, CatchesUpWithoutChangingItsMeanRate) {
    SimpleTable table(0, 200 * kNsPerMs);
    replace(table, 'A', 2);
    const std::int64_t late = now_ns() + 350 * kNsPerMs;
    for (const char* name : {"A0", "A1", "A0", "A1", "-"}) {
        EXPECT_EQ(next_name(table, late), name);
    }
    EXPECT_EQ(next_name(table, now_ns() + 400 * kNsPerMs), "A0");
}

TEST(SimpleTable, PlaysANewVersionFromItsStartNowAndKeepsCounting) {
    SimpleTable table(0, 200 * kNsPerMs);
    const std::int64_t far = now_ns() + 1000 * kNsPerSecond;
    EXPECT_EQ(next_name(table, far), "-");
    for (int i = 0; i < 40; ++i) {
        simulated_clock::advance(7);
        replace(table, 'A', 3);
        int counter = -1;
        EXPECT_EQ(next_name(table, now_ns() - 1), "-");
        EXPECT_EQ(next_name(table, now_ns(), &counter), "A0");
        EXPECT_EQ(counter, i % 16);
        if (i % 2 == 0) table.clear();
        EXPECT_EQ(next_name(table, now_ns()), "-");
    }
    table.clear();
    EXPECT_EQ(next_name(table, far), "-");
}

}  // namespace
