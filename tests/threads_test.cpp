// The two threads of the program on the real clock: one updates tables as fast as it can,
// the other plays at the highest bitrate. Under ThreadSanitizer this is the proof that
// they share nothing but what the locks guard.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "control/mux_control_handler.h"
#include "mux/muxer.h"
#include "tests/support/random_tables.h"

namespace {

struct EndOfRun {};

std::atomic<bool> ended{false};
// Of the playing thread, until it has been joined.
std::size_t packets_sent = 0;  // that begin with a sync byte
std::size_t bytes_sent = 0;

int send(const std::uint8_t* data, std::uint32_t length) {
    if (ended) throw EndOfRun();
    bytes_sent += length;
    for (std::size_t at = 0; at < length; at += kTsPacketSize) {
        packets_sent += data[at] == kSyncByte ? 1 : 0;
    }
    return 0;
}

void play() {
    try {
        muxer_run(0, 1);
    } catch (const EndOfRun&) {
    }
}

TEST(Threads, UpdateAndPlayAtOnce) {
    muxer_create(100000, send);
    cm_MuxControlSrvHandler handler;
    std::thread player(play);

    RandomTables random(1);
    int updates = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < end) {
        const auto service = static_cast<std::int16_t>(random.below(6));
        const auto pid = static_cast<std::int16_t>(0x20 + random.below(3));
        switch (random.below(16)) {
            case 0:
                handler.NewPAT(random.pat(1 + random.below(200)));
                break;
            case 1:
                handler.NewCAT(random.cat(random.below(2000)));
                break;
            case 2:
                handler.NewSDTActual(random.sdt(random.below(20), 50));
                break;
            case 3:
                handler.ClearCAT();
                break;
            case 4:
                handler.ClearAllTables();
                break;
            case 5:
            case 6:
            case 7:
                handler.StopPMT(service, pid);
                break;
            default:
                handler.NewPMT(random.pmt(service, random.below(1009)), pid);
        }
        ++updates;
    }
    ended = true;
    player.join();

    EXPECT_GT(updates, 1000);
    EXPECT_GT(packets_sent, 1000u);
    EXPECT_EQ(bytes_sent, packets_sent * kTsPacketSize);
    EXPECT_LE(static_cast<double>(packets_sent), 3.2 * 100e6 / kTsPacketBits);
}

}  // namespace
