#include "mux/muxer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <stdexcept>

#include "mux/slot_time.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/simulated_clock.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kInterval = 1504000;  // of a packet at 1000 kbit/s

// A stream whose packets carry its name in byte 4, due a number of times or for ever.
class NamedStream : public muxed_stream {
public:
    static constexpr std::int64_t kForEver = -1;

    explicit NamedStream(std::uint8_t name, std::int64_t due = kForEver)
        : muxed_stream(name), due_(due), name_(name) {}

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override {
        slot_times.push_back(slot_time_ns);
        if (fails) throw std::runtime_error("no mutex");
        if (due_ == 0) return false;
        if (due_ != kForEver) --due_;
        dst[3] = header;
        dst[4] = name_;
        stamp_continuity(dst);
        return true;
    }

    std::vector<std::int64_t> slot_times;  // at which it was asked
    bool fails = false;
    std::uint8_t header = kHasPayload;

private:
    std::int64_t due_;
    std::uint8_t name_;
};

// Streams 0 to n-1, registered; in a deque, since streams cannot move.
class Registered {
public:
    explicit Registered(std::uint8_t count, std::int64_t due = NamedStream::kForEver) {
        for (std::uint8_t name = 0; name < count; ++name) {
            muxer_add(streams_.emplace_back(name, due));
        }
    }
    ~Registered() {
        for (NamedStream& stream : streams_) muxer_remove(stream);
    }
    NamedStream& operator[](std::size_t i) { return streams_[i]; }

private:
    std::deque<NamedStream> streams_;
};

std::vector<int> names_in(const Datagram& datagram) {
    std::vector<int> names;
    for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
        names.push_back(datagram.bytes[at + 4]);
    }
    return names;
}

std::vector<int> polling_order() {
    std::vector<int> names;
    for (muxed_stream& stream : the_muxer->streams) {
        std::uint8_t packet[kTsPacketSize];
        stream.next_packet(packet, 0);
        names.push_back(packet[4]);
    }
    return names;
}

TEST(Muxer, ClampsTheBitrateAndRoundsThePacketInterval) {
    const std::tuple<std::uint32_t, std::uint32_t, std::uint64_t> cases[] = {
        {0, 100, 15040000},      {99, 100, 15040000},     {100, 100, 15040000},
        {333, 333, 4516517},     {1000, 1000, 1504000},   {3000, 3000, 501333},
        {100000, 100000, 15040}, {100001, 100000, 15040}, {250000, 100000, 15040},
    };
    for (const auto& [asked, stored, interval] : cases) {
        const Playout playout(asked);
        EXPECT_EQ(the_muxer->bitrate_kbps, stored);
        EXPECT_EQ(the_muxer->packet_interval_ns, interval);
    }
}

TEST(Muxer, RegistersAtTheBackAndUnregistersOnce) {
    const Playout playout(1000);
    Registered streams(4);
    EXPECT_EQ(muxer_remove(streams[1]), 0);
    EXPECT_EQ(muxer_remove(streams[1]), -1);
    EXPECT_EQ(the_muxer->streams.size(), 3u);
    EXPECT_THAT(polling_order(), ElementsAre(0, 2, 3));
    EXPECT_EQ(muxer_add(streams[1]), 0);
    EXPECT_THAT(polling_order(), ElementsAre(0, 2, 3, 1));
}

TEST(MuxerDeathTest, AssertsOnTheContractOfTheHook) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Playout playout(1000);
    Registered streams(1);
    EXPECT_DEATH(muxer_add(streams[0]), "inited\\(to_insert\\)");
    EXPECT_DEATH(
        {
            NamedStream doomed(9);
            muxer_add(doomed);
        },
        "!hook.is_linked\\(\\)");
}

TEST(PacingLoop, WakesOncePerPacketIntervalWhenNothingIsDue) {
    Playout playout(1000);
    for (const int streams : {0, 3}) {
        const Registered idle(static_cast<std::uint8_t>(streams), 0);
        const std::uint64_t before = simulated_clock::sleeps();
        EXPECT_THAT(playout.run_for(kInterval * 500), IsEmpty());
        EXPECT_EQ(simulated_clock::sleeps() - before, 500u);
    }
}

TEST(PacingLoop, SendsWhatIsDueAsOneDatagramAndIdlesOneIntervalAtATime) {
    Playout playout(1000);
    Registered streams(3, 1);
    const std::int64_t start = simulated_clock::now_ns();
    const auto datagrams = playout.run_for(10 * kInterval);
    ASSERT_EQ(datagrams.size(), 1u);
    EXPECT_THAT(names_in(datagrams[0]), ElementsAre(0, 1, 2));
    EXPECT_EQ(datagrams[0].time_ns, start);
    // Each packet of a pass has the next slot; a stream with nothing due takes none.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(streams[i].slot_times[0], start + i * kInterval);
    EXPECT_EQ(streams[0].slot_times[1], start + 3 * kInterval);
    EXPECT_EQ(streams[2].slot_times[1], start + 3 * kInterval);
    EXPECT_EQ(streams[0].slot_times[2], start + 4 * kInterval);
}

TEST(PacingLoop, BeginsEachPassBehindTheStreamAskedLast) {
    for (const int count : {1, 7, 8, 10}) {
        Playout playout(1000);
        const Registered streams(static_cast<std::uint8_t>(count));
        int next = 0;
        for (const Datagram& datagram : playout.run_for(kNsPerSecond)) {
            ASSERT_EQ(datagram.packets(), static_cast<std::size_t>(std::min(count, 7)));
            for (const int name : names_in(datagram)) {
                ASSERT_EQ(name, next);
                next = (next + 1) % count;
            }
        }
    }
}

TEST(PacingLoop, NeverExceedsTheBitrateInAnyWindow) {
    std::mt19937 random(1);
    for (const std::uint32_t kbps : {100u, 333u, 1000u, 7777u, 100000u}) {
        Playout playout(kbps);
        Registered streams(12, 40);
        const Registered always(static_cast<std::uint8_t>(random() % 3 + 1));
        const auto datagrams = playout.run_for(kNsPerSecond);
        const auto interval = static_cast<std::int64_t>(the_muxer->packet_interval_ns);
        ASSERT_GT(datagrams.size(), 9u);
        for (std::size_t i = 1; i < datagrams.size(); ++i) {
            const auto slots = static_cast<std::int64_t>(datagrams[i - 1].packets());
            ASSERT_GE(datagrams[i].time_ns - datagrams[i - 1].time_ns, slots * interval);
        }
    }
}

TEST(PacingLoop, SendsThePacketsOwedInABurstAfterAStall) {
    Playout playout(2000);
    const Registered streams(1);
    playout.at(kNsPerSecond, [] { simulated_clock::advance(kNsPerSecond); });
    const std::int64_t start = simulated_clock::now_ns();
    const auto datagrams = playout.run_for(3 * kNsPerSecond);
    std::int64_t burst = 0;
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        const std::int64_t slot = start + static_cast<std::int64_t>(i) * 752000;
        burst += datagrams[i].time_ns > slot ? 1 : 0;
        ASSERT_EQ(datagrams[i].time_ns,
                  std::max(slot, i > 1329 ? start + 1330 * 752000 + kNsPerSecond : 0));
    }
    EXPECT_EQ(burst, 1330);  // a second of slots
}

TEST(PacingLoop, KicksTheWatchdogEveryFiveSecondsOfSlotTime) {
    Playout playout(1000);
    std::vector<std::int64_t> kicks;
    const std::int64_t start = simulated_clock::now_ns();
    fake_framework::on_kick = [&](int handle) {
        EXPECT_EQ(handle, 77);
        kicks.push_back(simulated_clock::now_ns() - start);
    };
    playout.at(11 * kNsPerSecond, [] { simulated_clock::advance(10 * kNsPerSecond); });
    playout.run_for(27 * kNsPerSecond);
    fake_framework::on_kick = nullptr;
    // Five seconds are 3325 slots (rounded up). The two kicks owed after the stall follow
    // at once.
    constexpr std::int64_t period = 3325 * kInterval;
    const std::int64_t woken =
        (11 * kNsPerSecond / kInterval + 1) * kInterval + 10 * kNsPerSecond;
    EXPECT_THAT(kicks, ElementsAre(period, 2 * period, woken, woken, 5 * period));
}

TEST(PacingLoop, SleepsTheRestOfAnInterruptedSleep) {
    Playout playout(1000);
    const Registered streams(1);
    playout.at(2 * kInterval, [] { simulated_clock::interrupt_next_sleep_after(100); });
    const std::int64_t start = simulated_clock::now_ns();
    const auto datagrams = playout.run_for(6 * kInterval);
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        EXPECT_EQ(datagrams[i].time_ns, start + static_cast<std::int64_t>(i) * kInterval);
    }
}

TEST(PacingLoop, LeavesWithTheMutexReleasedWhenAStreamThrows) {
    Playout playout(1000);
    Registered streams(2);
    streams[1].fails = true;
    EXPECT_THROW(playout.run_for(kNsPerSecond), std::runtime_error);
    EXPECT_TRUE(the_muxer->mutex.try_lock());
    the_muxer->mutex.unlock();
}

TEST(ContinuityStamp, RunsOnFromTheFirstPacketsOwnCounterWherePacketsHavePayload) {
    NamedStream stream(1);
    std::uint8_t packet[kTsPacketSize];
    const auto counter_after = [&](int header) {
        stream.header = static_cast<std::uint8_t>(header);
        stream.next_packet(packet, 0);
        return int{packet[3]};
    };
    EXPECT_EQ(counter_after(0x1E), 0x1E);
    EXPECT_EQ(counter_after(0x13), 0x1F);
    EXPECT_EQ(counter_after(0x37), 0x30);
    EXPECT_EQ(counter_after(0x27), 0x27);  // no payload: not counted
    EXPECT_EQ(counter_after(0x10), 0x11);
}

}  // namespace
