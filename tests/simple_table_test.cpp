#include "tables/simple_table.h"

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

// Three packets in 500 ms: the next one is due 166,666,666 ns after the one before was
// due, also when that was late.
TEST(SimpleTable, SpreadsEachVersionOverThePeriodFromItsStart) {
    SimpleTable table(0x11, 500 * kNsPerMs);
    std::string packets = named_packets('A', {1, 2});
    table.replace_packets(packets);
    std::int64_t due = simulated_clock::now_ns();
    int counter = 0, sent = 0;
    for (const char* const name : {"A0", "A1", "A2", "A0", "A1"}) {
        EXPECT_EQ(next_name(table, due - 1), "-");
        EXPECT_EQ(next_name(table, due + sent % 2 * kNsPerMs, &counter), name);
        EXPECT_EQ(counter, sent++);
        due += 166666666;
    }
    packets = named_packets('B', {1});
    simulated_clock::advance(kNsPerSecond);
    table.replace_packets(packets);
    EXPECT_EQ(packets, named_packets('A', {1, 2}));
    due = simulated_clock::now_ns();
    for (int i = 0; i < 2; ++i, due += 500 * kNsPerMs) {
        EXPECT_EQ(next_name(table, due - 1), "-");
        EXPECT_EQ(next_name(table, due, &counter), "B0");
        EXPECT_EQ(counter, sent++);
    }
    packets = named_packets('B', {1});  // the same again
    simulated_clock::advance(kNsPerMs);
    table.replace_packets(packets);
    EXPECT_EQ(next_name(table, simulated_clock::now_ns()), "B0");
    table.clear();
    EXPECT_EQ(next_name(table, due + kNsPerSecond), "-");
}

}  // namespace
