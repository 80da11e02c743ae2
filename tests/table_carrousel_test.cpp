#include "tables/table_carrousel.h"

#include <algorithm>
#include <deque>
#include <map>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

constexpr std::uint32_t kPeriodMs = 200;

// What a carrousel must do, by a search of the whole ring at each section's end.
class Model {
public:
    struct Turn {
        char name;
        std::vector<int> sections;  // packets of each
        std::int64_t period_ms;
        std::int64_t eligible;
        std::size_t index = 0;
    };

    std::deque<Turn>::iterator find(char name) {
        return std::find_if(ring.begin(), ring.end(),
                            [=](const Turn& turn) { return turn.name == name; });
    }

    void add(const Turn& turn) {
        if (ring.empty()) next_time = now_ns();
        ring.push_back(turn);
    }

    std::string next(std::int64_t slot) {
        if (ring.empty() || slot < next_time) return "-";
        next_time += interval();
        Turn& head = ring.front();
        const std::string name = head.name + std::to_string(head.index++);
        std::size_t section_end = 0;
        bool is_section_end = false;
        for (const int packets : head.sections) {
            section_end += static_cast<std::size_t>(packets);
            is_section_end = is_section_end || head.index == section_end;
        }
        if (is_section_end) pass_the_turn(slot);
        return name;
    }

    std::deque<Turn> ring;  // begins with the one being sent
    std::int64_t next_time = 0;

private:
    static int packets_of(const Turn& turn) {
        return std::accumulate(turn.sections.begin(), turn.sections.end(), 0);
    }

    [[nodiscard]] std::int64_t interval() const {
        std::int64_t bitrate = 0;
        for (const Turn& turn : ring) {
            if (turn.period_ms == 0) continue;
            bitrate += 1504000 * packets_of(turn) / turn.period_ms + 1;
        }
        return bitrate == 0 ? 0 : 1504 * kNsPerSecond / bitrate;
    }

    // The first after the head, in cyclic order and the head being the last, that is
    // eligible; or else the one after the head.
    void pass_the_turn(std::int64_t slot) {
        Turn& head = ring.front();
        if (head.index == static_cast<std::size_t>(packets_of(head))) {
            head.index = 0;
            head.eligible = slot + head.period_ms * kNsPerMs;
        }
        const auto rotate = [&] {
            std::rotate(ring.begin(), ring.begin() + 1, ring.end());
            return slot >= ring.front().eligible;
        };
        for (std::size_t moves = 0; moves < ring.size(); ++moves) {
            if (rotate()) return;
        }
        rotate();
    }
};

// Tables of several sections and packets, of one and of different periods, added,
// replaced and removed at any moment, the one in flight and the last one among them.
TEST(TableCarrousel, PlaysAsASearchOfTheWholeRingWould) {
    std::mt19937 random(11);
    TableCarrousel carrousel(0x100);
    Model model;
    std::map<char, SubTable*> subs;
    std::map<char, int> sent;
    std::int64_t slot = now_ns();
    int last_counter = -1;
    for (int i = 0; i < 300000; ++i) {
        slot += static_cast<std::int64_t>(random() % 2 * (random() % 40)) * kNsPerMs;
        if (random() % 8 == 0) slot = std::max(slot, model.next_time - i % 2);
        simulated_clock::advance(slot - now_ns());
        const char name = static_cast<char>('A' + random() % (i < 150000 ? 3 : 12));
        const auto turn = model.find(name);
        std::vector<int> sections(1 + random() % 3);
        for (int& packets : sections) packets = static_cast<int>(1 + random() % 3);
        const auto chance = random() % 60;
        if (chance < 8 && turn == model.ring.end()) {
            const auto period_ms =
                static_cast<std::uint32_t>(random() % 4 == 0 ? random() % 9 * 100 : 200);
            subs[name] = new SubTable(named_packets(name, sections), period_ms);
            carrousel.add_subtable(subs[name]);
            model.add({name, sections, period_ms, slot});
        } else if (chance < 4 && turn != model.ring.end()) {
            if (chance < 2) sections.clear();
            std::string packets = named_packets(name, sections);
            carrousel.update_subtable(subs[name], packets);
            EXPECT_TRUE(packets.empty());
            turn->sections = sections;
            turn->index = 0;
            if (sections.empty()) model.ring.erase(turn);
        }
        int counter = -1;
        const std::string got = next_name(carrousel, slot, &counter);
        ASSERT_EQ(got, model.next(slot)) << i;
        if (got == "-") continue;
        ASSERT_TRUE(last_counter < 0 || counter == (last_counter + 1) % 16);
        last_counter = counter;
        ++sent[got[0]];
    }
    EXPECT_EQ(sent.size(), 12u);
    for (const auto& [name, count] : sent) EXPECT_GT(count, 1000) << name;
}

TEST(TableCarrousel, LeavesATableThatIsNotItsOwnAlone) {
    TableCarrousel carrousel(0x100);
    SubTable loose(named_packets('A', {1}), kPeriodMs);
    std::string packets = named_packets('B', {1});
    carrousel.update_subtable(&loose, packets);
    EXPECT_EQ(loose.packets, named_packets('A', {1}));
    EXPECT_EQ(packets, named_packets('B', {1}));
}

}  // namespace
