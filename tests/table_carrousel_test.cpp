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
using testing::ElementsAre;

constexpr std::uint32_t kPeriodMs = 200;

SubTable* add(TableCarrousel& carrousel, char name, const std::vector<int>& sections) {
    auto* const sub = new SubTable(named_packets(name, sections), kPeriodMs);
    carrousel.add_subtable(sub);
    return sub;
}

void replace(TableCarrousel& carrousel, SubTable* sub, char name,
             const std::vector<int>& sections) {
    std::string packets = named_packets(name, sections);
    carrousel.update_subtable(sub, packets);
    EXPECT_TRUE(packets.empty());
}

void remove(TableCarrousel& carrousel, SubTable* sub) {
    std::string none;
    carrousel.update_subtable(sub, none);
}

// The packets handed out at one late slot time, at which all of them are due.
std::vector<std::string> names_at(TableCarrousel& carrousel, std::int64_t slot,
                                  int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) names.push_back(next_name(carrousel, slot));
    return names;
}

TEST(TableCarrousel, ComputesTheBitrateThatATableNeeds) {
    EXPECT_EQ(SubTable(named_packets('A', {1}), 200).bitrate, 7521u);
    EXPECT_EQ(SubTable(named_packets('A', {2}), 200).bitrate, 15041u);
    EXPECT_EQ(SubTable(named_packets('A', {2}), 0).bitrate, 0u);
}

TEST(TableCarrousel, SendsAtTheSumOfTheRatesAndFollowsEveryChangeAtOnce) {
    TableCarrousel carrousel(0x100);
    EXPECT_EQ(next_name(carrousel, now_ns()), "-");
    SubTable* const a = add(carrousel, 'A', {1});
    std::int64_t due = now_ns();
    EXPECT_EQ(next_due(carrousel, due), due);
    EXPECT_EQ(next_due(carrousel, due + 199973407), due + 199973407);

    // The next packet keeps its time; the one after it comes at the new rate.
    due += 2 * 199973407;
    SubTable* const b = add(carrousel, 'B', {1});
    EXPECT_EQ(next_due(carrousel, due), due);
    EXPECT_EQ(next_due(carrousel, due + 99986703), due + 99986703);

    due += 2 * 99986703;
    remove(carrousel, a);
    EXPECT_EQ(next_due(carrousel, due), due);
    EXPECT_EQ(next_due(carrousel, due + 199973407), due + 199973407);

    remove(carrousel, b);
    EXPECT_EQ(next_name(carrousel, due + 1000 * kNsPerSecond), "-");

    simulated_clock::advance(5 * kNsPerSecond);
    add(carrousel, 'C', {2});
    due = now_ns();
    EXPECT_EQ(next_due(carrousel, due), due);
    EXPECT_EQ(next_due(carrousel, due + 99993351), due + 99993351);
}

TEST(TableCarrousel, TakesEligibleTablesInTurnAndTheNextOneWhenNoneIs) {
    TableCarrousel carrousel(0x100);
    add(carrousel, 'A', {1, 1});
    add(carrousel, 'B', {1});
    const std::int64_t late = now_ns() + kPeriodMs * kNsPerMs;
    // B has been sent whole and waits for its period: A, which has not, goes first; but
    // when neither is eligible the turn passes on all the same.
    EXPECT_THAT(names_at(carrousel, late, 4), ElementsAre("A0", "B0", "A1", "B0"));

    TableCarrousel three(0x100);
    add(three, 'A', {1});
    add(three, 'B', {1});
    add(three, 'C', {1});
    const std::int64_t start = now_ns();
    EXPECT_THAT(names_at(three, start + 190 * kNsPerMs, 2), ElementsAre("A0", "B0"));
    // At its next turn C is eligible, and so is none of the others.
    EXPECT_EQ(next_name(three, start + 191 * kNsPerMs), "C0");
    EXPECT_EQ(next_name(three, start + 392 * kNsPerMs), "A0");
    // A waits again; B and C are eligible.
    EXPECT_EQ(next_name(three, start + 393 * kNsPerMs), "B0");
    EXPECT_EQ(next_name(three, start + 394 * kNsPerMs), "C0");
}

TEST(TableCarrousel, SkipsATableWhoseTimeHasNotComeWhileAnotherIsEligible) {
    TableCarrousel carrousel(0x100);
    add(carrousel, 'A', {1, 1, 1});
    add(carrousel, 'B', {1});
    add(carrousel, 'C', {1, 1});
    const std::int64_t late = now_ns() + 199 * kNsPerMs;
    EXPECT_THAT(names_at(carrousel, late, 6),
                ElementsAre("A0", "B0", "C0", "A1", "C1", "A2"));
}

TEST(TableCarrousel, StartsAReplacedTableAnewWithoutMovingItsTurn) {
    TableCarrousel carrousel(0x100);
    SubTable* const a = add(carrousel, 'A', {2});
    SubTable* const b = add(carrousel, 'B', {1, 1});
    const std::int64_t late = now_ns() + 190 * kNsPerMs;
    EXPECT_THAT(names_at(carrousel, late, 1), ElementsAre("A0"));
    replace(carrousel, a, 'X', {1});  // the head, in the middle of a section
    EXPECT_THAT(names_at(carrousel, late, 2), ElementsAre("X0", "B0"));
    replace(carrousel, b, 'Y', {1});  // not the head
    EXPECT_EQ(next_name(carrousel, now_ns() + 600 * kNsPerMs), "Y0");
    EXPECT_EQ(next_name(carrousel, now_ns() + 600 * kNsPerMs), "X0");
}

TEST(TableCarrousel, GoesOnWithTheNextTableWhenTheHeadIsRemoved) {
    TableCarrousel carrousel(0x100);
    SubTable* const a = add(carrousel, 'A', {3});
    add(carrousel, 'B', {1});
    const std::int64_t late = now_ns() + kNsPerSecond;
    EXPECT_EQ(next_name(carrousel, late), "A0");
    remove(carrousel, a);
    EXPECT_EQ(next_name(carrousel, late), "B0");
}

TEST(TableCarrousel, LeavesATableThatIsNotItsOwnAlone) {
    TableCarrousel carrousel(0x100);
    SubTable loose(named_packets('A', {1}), kPeriodMs);
    std::string packets = named_packets('B', {1});
    carrousel.update_subtable(&loose, packets);
    EXPECT_EQ(loose.packets, named_packets('A', {1}));
    EXPECT_EQ(packets, named_packets('B', {1}));
}

// One sub-table as the rule of choice sees it.
struct Turn {
    char name;
    std::size_t sections;
    std::int64_t period_ns;
    std::int64_t eligible;
    std::size_t index = 0;
};

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

TEST(TableCarrousel, ChoosesAsASearchOfTheWholeRingWould) {
    std::mt19937 random(11);
    TableCarrousel carrousel(0x100);
    std::deque<Turn> ring;
    std::map<char, SubTable*> subs;
    std::int64_t slot = now_ns();
    for (int i = 0; i < 100000; ++i) {
        slot += static_cast<std::int64_t>(random() % 2) * (random() % 40) * kNsPerMs;
        simulated_clock::advance(slot - now_ns());
        const char name = static_cast<char>('A' + random() % 26);
        if (random() % 8 == 0 && subs.count(name) == 0) {
            const std::size_t sections = 1 + random() % 3;
            const auto period_ms =
                static_cast<std::uint32_t>(random() % 4 == 0 ? random() % 1000 : 200);
            subs[name] = new SubTable(named_packets(name, std::vector<int>(sections, 1)),
                                      period_ms);
            carrousel.add_subtable(subs[name]);
            ring.push_back({name, sections, period_ms * kNsPerMs, now_ns()});
        } else if (random() % 30 == 0 && subs.count(name) != 0) {
            remove(carrousel, subs[name]);
            subs.erase(name);
            ring.erase(std::find_if(ring.begin(), ring.end(),
                                    [=](const Turn& turn) { return turn.name == name; }));
        }
        const std::string sent = next_name(carrousel, slot);
        if (sent == "-") continue;
        Turn& head = ring.front();
        ASSERT_EQ(sent, head.name + std::to_string(head.index)) << i;
        if (++head.index == head.sections) {
            head.index = 0;
            head.eligible = slot + head.period_ns;
        }
        pass_the_turn(ring, slot);
    }
}

// Random tables under random changes: a section that has begun is ended before another
// table's packet comes (unless its table was replaced or removed in the middle), counters
// never break, and no table starves.
TEST(TableCarrousel, NeverTearsASection) {
    std::mt19937 random(7);
    const auto random_sections = [&] {
        std::vector<int> sections(random() % 4 + 1);
        for (int& packets : sections) packets = static_cast<int>(random() % 3 + 1);
        return sections;
    };
    TableCarrousel carrousel(0x100);
    std::map<char, SubTable*> tables;
    std::string unfinished;  // names of the packets that the section in flight still has
    std::map<char, int> sent;
    int last_counter = -1;
    std::int64_t slot = now_ns();
    for (int step = 0; step < 20000; ++step) {
        const char name = static_cast<char>('A' + random() % 6);
        if (random() % 20 == 0) {
            SubTable*& sub = tables[name];
            if (sub == nullptr) {
                sub = add(carrousel, name, random_sections());
            } else {
                if (!unfinished.empty() && unfinished[0] == name) unfinished.clear();
                if (random() % 2 == 0) {
                    replace(carrousel, sub, name, random_sections());
                } else {
                    remove(carrousel, std::exchange(sub, nullptr));
                }
            }
        }
        slot += static_cast<std::int64_t>(random() % (20 * kNsPerMs));
        int counter = -1;
        const std::string got = next_name(carrousel, slot, &counter);
        if (got == "-") continue;
        ASSERT_TRUE(last_counter < 0 || counter == (last_counter + 1) % 16);
        last_counter = counter;
        ASSERT_TRUE(unfinished.empty() || got == unfinished)
            << got << " in " << unfinished;
        SubTable* const sub = tables[got[0]];
        ASSERT_NE(sub, nullptr);
        ++sent[got[0]];
        const std::size_t next = std::stoul(got.substr(1)) + 1;
        const bool goes_on =
            next * kTsPacketSize < sub->packets.size() &&
            (sub->packets[next * kTsPacketSize + 1] & kPayloadUnitStart) == 0;
        unfinished = goes_on ? got[0] + std::to_string(next) : "";
    }
    for (const auto& [name, count] : sent) EXPECT_GT(count, 500) << name;
    EXPECT_EQ(sent.size(), 6u);
}

}  // namespace
