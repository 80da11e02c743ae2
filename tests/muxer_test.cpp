#include "mux/muxer.h"

#include <climits>
#include <deque>

#include <gmock/gmock.h>

#include "dvb/nanoseconds.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/simulated_clock.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kInterval = 1504000;  // of a packet at 1000 kbit/s

constexpr int kForEver = INT_MAX;

// A stream whose name is the PID of its packets. It has a packet due a number of times.
class NamedStream : public muxed_stream {
public:
    NamedStream(std::uint8_t name, int due)
        : muxed_stream(name), due_(due), name_(name) {}

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override {
        slot_times.push_back(slot_time_ns);
        if (due_ == 0) return false;
        --due_;
        std::uint8_t packet[kTsPacketSize] = {0, 0, name_, header};
        hand_out(packet, dst);
        return true;
    }

    std::vector<std::int64_t> slot_times;  // at which it was asked
    std::uint8_t header = kHasPayload;

private:
    int due_;
    std::uint8_t name_;
};

// Streams 0 to n-1, registered; in a deque, since streams cannot move.
class Registered : public std::deque<NamedStream> {
public:
    explicit Registered(int count, int due = kForEver) {
        for (int i = 0; i < count; ++i) {
            muxer_add(emplace_back(static_cast<std::uint8_t>(i), due));
        }
    }
    ~Registered() {
        for (NamedStream& stream : *this) muxer_remove(stream);
    }
};

TEST(Muxer, ClampsTheBitrateAndRoundsThePacketInterval) {
    const std::tuple<std::uint32_t, std::uint32_t, std::uint64_t> cases[] = {
        {0, 100, 15040000},   {99, 100, 15040000},     {333, 333, 4516517},
        {3000, 3000, 501333}, {100001, 100000, 15040}, {4000000000, 100000, 15040},
    };
    for (const auto& [asked, stored, interval] : cases) {
        const Playout playout(asked);
        EXPECT_EQ(the_muxer->bitrate_kbps, stored);
        EXPECT_EQ(the_muxer->packet_interval_ns, interval);
    }
}

TEST(Muxer, RegistersAtTheBackAndUnregistersOnce) {
    Playout playout(1000);
    Registered streams(4);
    EXPECT_EQ(muxer_remove(streams[1]), 0);
    EXPECT_EQ(muxer_remove(streams[1]), -1);
    EXPECT_EQ(the_muxer->streams.size(), 3u);
    EXPECT_THAT(playout.run_for(1).at(0).pids(), ElementsAre(0, 2, 3));
    EXPECT_EQ(muxer_add(streams[1]), 0);
    EXPECT_THAT(playout.run_for(1).at(0).pids(), ElementsAre(0, 2, 3, 1));
}

TEST(MuxerDeathTest, AssertsOnTheContractOfTheHook) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Playout playout(1000);
    Registered streams(1);
    EXPECT_DEATH(muxer_add(streams[0]), "inited\\(to_insert\\)");
    EXPECT_DEATH(muxer_add(*std::make_unique<NamedStream>(9, 1)),
                 "!hook.is_linked\\(\\)");
}

TEST(PacingLoop, SendsWhatIsDueAsOneDatagramAndIdlesOneIntervalAtATime) {
    Playout playout(1000);
    constexpr std::int64_t idle = 499 * kInterval;  // no multiple of a longer step
    const std::int64_t start = simulated_clock::now_ns() + idle;
    EXPECT_THAT(playout.run_for(idle), IsEmpty());  // without a stream
    EXPECT_EQ(simulated_clock::now_ns(), start);

    Registered streams(3, 1);
    const auto datagrams = playout.run_for(5 * kInterval);
    ASSERT_EQ(datagrams.size(), 1u);
    EXPECT_THAT(datagrams[0].pids(), ElementsAre(0, 1, 2));
    // Each packet of a pass takes the next slot. A stream without a due packet takes
    // none.
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(streams[static_cast<std::size_t>(i)].slot_times,
                    ElementsAre(start + i * kInterval, start + 3 * kInterval,
                                start + 4 * kInterval));
    }
}

// Each pass begins with the stream after the last one asked. Each datagram is sent
// exactly when the slots of the previous one end, also if a signal interrupts the sleep.
// So the rate is the bitrate in every window.
TEST(PacingLoop, TakesStreamsInCyclicOrderAtExactlyTheBitrate) {
    for (const std::uint32_t kbps : {100u, 333u, 1234u, 7777u, 99991u}) {
        for (const int count : {1, 7, 8, 10}) {
            Playout playout(kbps);
            const Registered streams(count);
            playout.at(kNsPerSecond,
                       [] { simulated_clock::interrupt_next_sleep_after(100); });
            std::int64_t slot = simulated_clock::now_ns();
            std::int64_t packets = 0;
            for (const Datagram& datagram : playout.run_for(5 * kNsPerSecond)) {
                ASSERT_EQ(datagram.packets(),
                          static_cast<std::size_t>(std::min(count, 7)));
                ASSERT_EQ(datagram.time_ns, slot);
                for (const int name : datagram.pids()) {
                    ASSERT_EQ(name, packets++ % count);
                    slot += static_cast<std::int64_t>(the_muxer->packet_interval_ns);
                }
            }
        }
    }
}

// At 100 kbit/s, where five seconds are 333 slots, rounded up.
TEST(PacingLoop, CatchesUpInABurstAfterAStallAndKicksBySlotTime) {
    constexpr std::int64_t slot = 10 * kInterval;
    constexpr std::int64_t period = 333 * slot;
    constexpr std::int64_t stall_at = 11 * kNsPerSecond;
    constexpr std::int64_t woken = (stall_at / slot + 1) * slot + 10 * kNsPerSecond;
    for (const int handle : {77, 0}) {
        Playout playout(100);
        playout.watchdog_handle = handle;
        const Registered streams(1);
        std::vector<std::int64_t> kicks;
        const std::int64_t start = simulated_clock::now_ns();
        fake_framework::on_kick = [&](int kicked) {
            EXPECT_EQ(kicked, handle);
            kicks.push_back(simulated_clock::now_ns() - start);
        };
        playout.at(stall_at, [] { simulated_clock::advance(10 * kNsPerSecond); });
        std::int64_t due = 0;
        for (const Datagram& datagram : playout.run_for(27 * kNsPerSecond)) {
            ASSERT_EQ(datagram.time_ns - start,
                      due <= stall_at ? due : std::max(due, woken));
            due += slot;
        }
        fake_framework::on_kick = nullptr;
        // The two kicks owed follow at once.
        EXPECT_THAT(kicks, ElementsAre(period, 2 * period, woken, woken, 5 * period));
    }
}

TEST(PacingLoop, LetsStreamsComeAndGoWhileItSends) {
    Playout playout(1000);
    Registered streams(2);
    std::vector<std::uint16_t> sent;
    playout.on_datagram = [&](const Datagram& datagram) {
        sent.push_back(datagram.pids()[0]);
        muxer_remove(streams[sent.back()]);  // waits for ever if the mutex is held
        muxer_add(streams[sent.back()]);
    };
    playout.run_for(8 * kInterval);
    EXPECT_THAT(sent, ElementsAre(0, 1, 0, 1));
}

TEST(ContinuityStamp, StartsAtTheFirstPacketsCounterAndAdvancesWithPayload) {
    NamedStream stream(1, kForEver);
    std::uint8_t packet[kTsPacketSize];
    for (const auto& [header, stamped] : {std::pair{0x1E, 0x1E},
                                          {0x13, 0x1F},
                                          {0x37, 0x30},
                                          {0x27, 0x27},
                                          {0x10, 0x11}}) {
        stream.header = static_cast<std::uint8_t>(header);
        stream.next_packet(packet, 0);
        EXPECT_EQ(packet[3], stamped);
    }
}

}  // namespace
