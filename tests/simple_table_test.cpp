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
    EXPECT_EQ(next_name(table, now_ns()), "-");
    replace(table, 'A', 2);
    int counter = -1;
    EXPECT_EQ(next_name(table, now_ns(), &counter), "A0");
    EXPECT_EQ(counter, 0);

    simulated_clock::advance(7);
    replace(table, 'B', 1);
    EXPECT_EQ(next_name(table, now_ns() - 1), "-");
    for (int i = 1; i < 40; ++i) {
        const std::int64_t slot = now_ns() + (i - 1) * 200 * kNsPerMs;
        EXPECT_EQ(next_name(table, slot, &counter), "B0");
        EXPECT_EQ(counter, i % 16);
    }

    std::string same = named_packets('B', {1});
    simulated_clock::advance(1);
    table.replace_packets(same);  // again: it starts anew
    EXPECT_EQ(same, named_packets('B', {1}));
    EXPECT_EQ(next_name(table, now_ns()), "B0");
}

TEST(SimpleTable, IsSilentAfterClearUntilTheNextTable) {
    SimpleTable table(0, 200 * kNsPerMs);
    replace(table, 'A', 3);
    int counter = -1;
    EXPECT_EQ(next_name(table, now_ns(), &counter), "A0");
    table.clear();
    table.clear();
    EXPECT_EQ(next_name(table, now_ns() + 1000 * kNsPerSecond), "-");
    replace(table, 'B', 1);
    EXPECT_EQ(next_name(table, now_ns(), &counter), "B0");
    EXPECT_EQ(counter, 1);
}

}  // namespace
