#include "tables/simple_table.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

// New versions and none at any moment, asked in time, late and early, against the rule: a
// version's packets evenly over the period, from its installation on, late ones at once.
TEST(SimpleTable, SpreadsEachVersionOverThePeriodFromItsStart) {
    constexpr std::int64_t period = 500 * kNsPerMs;
    std::mt19937 random(5);
    SimpleTable table(0x11, period);
    std::string name = "A";
    int packets = 0, index = 0, counter = 0, sent = 0;
    std::int64_t slot = simulated_clock::now_ns(), due = slot;
    for (int i = 0; i < 100000; ++i) {
        slot += random() % 10 == 0 ? random() % period : 0;
        if (random() % 2 == 0) slot = std::max(slot, due - i % 2);
        simulated_clock::advance(slot - simulated_clock::now_ns());
        switch (random() % 40) {
            case 0: {
                name = name == "Z" ? "A" : std::string(1, ++name[0]);
                packets = static_cast<int>(1 + random() % 12);
                std::string buffer = named_packets(
                    name[0], std::vector(static_cast<std::size_t>(packets), 1));
                table.replace_packets(buffer);
                index = 0;
                due = slot;
                break;
            }
            case 1:
                table.clear();
                packets = 0;
        }
        const bool is_due = packets != 0 && slot >= due;
        ASSERT_EQ(next_name(table, slot, &counter),
                  is_due ? name + std::to_string(index) : "-");
        if (!is_due) continue;
        ASSERT_EQ(counter, sent++ % 16);
        index = (index + 1) % packets;
        due += period / packets;  // truncated, not rounded
    }
    EXPECT_GT(sent, 10000);
}

}  // namespace
