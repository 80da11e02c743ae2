#include "tables/table_carrousel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include "mux/slot_time.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

constexpr std::uint32_t kPeriodMs = 200;

SubTable* add(TableCarrousel& carrousel, char name, const std::vector<int>& sections,
              std::uint32_t period_ms = kPeriodMs) {
    auto* const sub = new SubTable(named_packets(name, sections), period_ms);
    carrousel.add_subtable(sub);
    return sub;
}

// Replaces the sub-table's packets, or removes it when there are no sections.
void update(TableCarrousel& carrousel, SubTable* sub, char name,
            const std::vector<int>& sections) {
    std::string packets = named_packets(name, sections);
    carrousel.update_subtable(sub, packets);
    EXPECT_TRUE(packets.empty());
}

TEST(TableCarrousel, ComputesTheBitrateThatATableNeeds) {
    EXPECT_EQ(SubTable(named_packets('A', {1}), 200).bitrate, 7521u);
    EXPECT_EQ(SubTable(named_packets('A', {2}), 200).bitrate, 15041u);
    EXPECT_EQ(SubTable(named_packets('A', {2}), 0).bitrate, 0u);
}

TEST(TableCarrousel, SendsAtTheSumOfTheRatesAndFollowsEveryChangeAtOnce) {
    TableCarrousel carrousel(0x100);
    EXPECT_EQ(next_name(carrousel, now_ns()), "-");
    std::int64_t due = now_ns();
    // The next packet keeps its time; the one after it comes at the new rate.
    const auto expect_interval = [&](std::int64_t interval) {
        EXPECT_EQ(next_due(carrousel, due), due);
        EXPECT_EQ(next_due(carrousel, due + interval), due + interval);
        due += 2 * interval;
    };
    SubTable* const a = add(carrousel, 'A', {1});
    expect_interval(199973407);
    SubTable* const b = add(carrousel, 'B', {1});
    expect_interval(99986703);
    update(carrousel, a, 'A', {});
    expect_interval(199973407);
    update(carrousel, b, 'B', {});
    EXPECT_EQ(next_name(carrousel, due + 1000 * kNsPerSecond), "-");

    simulated_clock::advance(5 * kNsPerSecond);
    add(carrousel, 'C', {2});
    due = now_ns();
    expect_interval(99993351);
}

TEST(TableCarrousel, InterleavesNewTablesAtTheirSections) {
    TableCarrousel carrousel(0x100);
    add(carrousel, 'A', {1, 1});
    add(carrousel, 'B', {1});
    for (const char* name : {"A0", "B0", "A1", "B0"}) {
        EXPECT_EQ(next_name(carrousel, now_ns() + kPeriodMs * kNsPerMs), name);
    }
}

TEST(TableCarrousel, LeavesATableThatIsNotItsOwnAlone) {
    TableCarrousel carrousel(0x100);
    SubTable loose(named_packets('A', {1}), kPeriodMs);
    std::string packets = named_packets('B', {1});
    carrousel.update_subtable(&loose, packets);
    EXPECT_EQ(loose.packets, named_packets('A', {1}));
    EXPECT_EQ(packets, named_packets('B', {1}));
}

// A sub-table as the rule of choice sees it.
struct Turn {
    char name;
    std::vector<bool> starts;  // whether packet i begins a section
    std::int64_t period_ns;
    std::int64_t eligible;
    std::size_t index = 0;
};

std::vector<bool> starts_of(const std::vector<int>& sections) {
    std::vector<bool> starts;
    for (const int packets : sections) {
        for (int i = 0; i < packets; ++i) starts.push_back(i == 0);
    }
    return starts;
}

// The rule itself: the first after the head, in cyclic order and the head being the last,
// that is eligible; or else the one after the head.
void pass_the_turn(std::deque<Turn>& ring, std::int64_t slot) {
    const auto rotate = [&] { std::rotate(ring.begin(), ring.begin() + 1, ring.end()); };
    for (std::size_t moves = 0; moves < ring.size(); ++moves) {
        rotate();
        if (slot >= ring.front().eligible) return;
    }
    rotate();
}

// Tables of several sections and packets, of one and of different periods, added,
// replaced and removed at any moment, the one in flight among them.
TEST(TableCarrousel, PlaysAsASearchOfTheWholeRingWould) {
    std::mt19937 random(11);
    TableCarrousel carrousel(0x100);
    std::deque<Turn> ring;
    std::map<char, SubTable*> subs;
    std::map<char, int> sent;
    std::int64_t slot = now_ns();
    int last_counter = -1;
    for (int i = 0; i < 100000; ++i) {
        slot += static_cast<std::int64_t>(random() % 2) * (random() % 40) * kNsPerMs;
        simulated_clock::advance(slot - now_ns());
        const char name = static_cast<char>('A' + random() % 12);
        const auto turn = std::find_if(ring.begin(), ring.end(),
                                       [=](const Turn& t) { return t.name == name; });
        std::vector<int> sections(1 + random() % 3);
        for (int& packets : sections) packets = static_cast<int>(1 + random() % 3);
        const auto chance = random() % 60;
        if (chance < 8 && turn == ring.end()) {
            const auto period_ms =
                static_cast<std::uint32_t>(random() % 4 == 0 ? random() % 1000 : 200);
            subs[name] = add(carrousel, name, sections, period_ms);
            ring.push_back({name, starts_of(sections), period_ms * kNsPerMs, now_ns()});
        } else if (chance < 2 && turn != ring.end()) {
            update(carrousel, subs[name], name, {});
            ring.erase(turn);
        } else if (chance < 4 && turn != ring.end()) {
            update(carrousel, subs[name], name, sections);
            turn->starts = starts_of(sections);
            turn->index = 0;
        }
        int counter = -1;
        const std::string got = next_name(carrousel, slot, &counter);
        if (got == "-") continue;
        ASSERT_TRUE(last_counter < 0 || counter == (last_counter + 1) % 16);
        last_counter = counter;
        Turn& head = ring.front();
        ASSERT_EQ(got, head.name + std::to_string(head.index)) << i;
        ++sent[head.name];
        if (++head.index == head.starts.size()) {
            head.index = 0;
            head.eligible = slot + head.period_ns;
        }
        if (head.starts[head.index]) pass_the_turn(ring, slot);
    }
    EXPECT_EQ(sent.size(), 12u);
    for (const auto& [name, count] : sent) EXPECT_GT(count, 1000) << name;
}

}  // namespace
