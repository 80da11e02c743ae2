#include "tables/table_carrousel.h"

#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "tests/support/named_packets.h"
#include "tests/support/simulated_clock.h"

namespace {

using simulated_clock::now_ns;

// A model of the carrousel: it searches the whole ring at the end of each section, and
// sends at the sum of the rates that its tables need.
struct Model {
    struct Turn {
        char name;
        std::string packets;
        std::int64_t period_ms;
        std::int64_t eligible;
        std::size_t index = 0;
    };

    std::deque<Turn>::iterator find(char name) {
        return std::find_if(ring.begin(), ring.end(),
                            [=](const Turn& turn) { return turn.name == name; });
    }

    std::string next(std::int64_t slot) {
        if (ring.empty() || slot < next_time) return "-";
        next_time += interval();
        Turn& head = ring.front();
        std::string name = head.name + std::to_string(head.index++);
        const std::size_t at = head.index * kTsPacketSize;
        const bool is_end = at == head.packets.size();
        if (is_end) {
            head.index = 0;
            head.eligible = slot + head.period_ms * kNsPerMs;
        }
        if (is_end || head.packets[at + 1] == kPayloadUnitStart) pass_the_turn(slot);
        return name;
    }

    [[nodiscard]] std::int64_t interval() const {
        std::uint64_t bitrate = 0;
        for (const Turn& turn : ring) {
            if (turn.period_ms == 0) continue;
            const auto period_ms = static_cast<std::uint64_t>(turn.period_ms);
            bitrate += 8000 * turn.packets.size() / period_ms + 1;
        }
        return bitrate == 0 ? 0 : static_cast<std::int64_t>(1504000000000 / bitrate);
    }

    // Takes the first table after the head that is eligible, in cyclic order with the
    // head as the last one. Takes the one after the head if none is.
    void pass_the_turn(std::int64_t slot) {
        for (std::size_t moves = 0; moves <= ring.size(); ++moves) {
            std::rotate(ring.begin(), ring.begin() + 1, ring.end());
            if (slot >= ring.front().eligible) return;
        }
    }

    std::deque<Turn> ring;  // begins with the one being sent
    std::int64_t next_time = 0;
};

// Tables of several sections and packets, with equal and with different periods, are
// added, replaced and removed at any moment, also while they are sent, and also the last
// one.
TEST(TableCarrousel, PlaysInTheOrderOfAModelThatSearchesTheWholeRing) {
    EXPECT_EQ(SubTable(named_packets('A', {2}), 200).bitrate, 15041U);
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
        for (int& size : sections) size = static_cast<int>(1 + random() % 3);
        std::string packets = named_packets(name, sections);
        const auto chance = random() % 60;
        if (chance < 8 && turn == model.ring.end()) {
            const auto period_ms =
                static_cast<std::uint32_t>(random() % 4 == 0 ? random() % 9 * 100 : 200);
            subs[name] = new SubTable(std::string(packets), period_ms);
            carrousel.add_subtable(subs[name]);
            if (model.ring.empty()) model.next_time = slot;
            model.ring.push_back({name, packets, period_ms, slot});
        } else if (chance < 4 && turn != model.ring.end()) {
            if (chance < 2) packets.clear();
            turn->packets = packets;
            turn->index = 0;
            if (packets.empty()) model.ring.erase(turn);
            carrousel.update_subtable(subs[name], packets);
            EXPECT_TRUE(packets.empty());
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

TEST(TableCarrousel, IgnoresTheUpdateOfAnUnlinkedSubTable) {
    TableCarrousel carrousel(0x100);
    SubTable loose(named_packets('A', {1}), 200);
    std::string packets = named_packets('B', {1});
    carrousel.update_subtable(&loose, packets);
    EXPECT_EQ(loose.packets, named_packets('A', {1}));
    EXPECT_EQ(packets, named_packets('B', {1}));
}

}  // namespace
