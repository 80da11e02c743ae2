// The two threads of the program on the real clock: one updates tables as fast as it can,
// the other plays at the highest bitrate. ThreadSanitizer reports it if they share data
// that no lock guards.

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "control/mux_server.h"
#include "mux/muxer.h"
#include "tests/support/pacing_loop.h"
#include "tests/support/random_tables.h"

namespace {

std::atomic<bool> ended{false};
std::size_t bytes_sent = 0;  // the playing thread's, until it has been joined

int take(const std::uint8_t* data, std::uint32_t length) {
    if (ended) throw EndOfRun();
    bytes_sent += length;
    for (std::size_t at = 0; at < length; at += kTsPacketSize) {
        if (data[at] != kSyncByte) std::abort();
    }
    return 0;
}

TEST(Threads, UpdateAndPlayAtOnce) {
    const PacingLoop loop(100000, take);
    cm_MuxControlSrvHandler handler;
    std::thread player([] { PacingLoop::run(); });

    RandomTables random(1);
    int updates = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (updates < 1000 || std::chrono::steady_clock::now() < end) {
        const auto service = static_cast<std::int16_t>(random.below(6));
        const auto pid = static_cast<std::int16_t>(0x20 + random.below(3));
        if (updates % 3 == 0) handler.NewPAT(random.pat(1 + random.below(200)));
        if (updates % 5 == 0) handler.NewSDTActual(random.sdt(random.below(20), 50));
        if (updates % 7 == 0) handler.NewCAT(random.cat(random.below(2000)));
        if (updates % 8 == 0) handler.ClearCAT();
        if (updates % 4 == 0) handler.StopPMT(service, pid);
        if (updates % 50 == 0) handler.ClearAllTables();
        handler.NewPMT(random.pmt(service, random.below(1009)), pid);
        ++updates;
    }
    ended = true;
    player.join();

    EXPECT_GT(bytes_sent, 1000 * kTsPacketSize);
}

// Returns this process's sockets whose option has this value.
std::vector<int> sockets(int option, int value) {
    std::vector<int> found;
    for (int fd = 0; fd < 100; ++fd) {
        int its_value = 0;
        socklen_t size = sizeof its_value;
        if (getsockopt(fd, SOL_SOCKET, option, &its_value, &size) == 0 &&
            its_value == value) {
            found.push_back(fd);
        }
    }
    return found;
}

std::size_t streams() {
    const std::lock_guard lock(the_muxer->mutex);
    return the_muxer->streams.size();
}

template <typename Condition>
void wait_until(Condition is_true) {
    while (!is_true()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Thrift's server ends when it is interrupted, which nobody does outside of this test.
TEST(Threads, WithdrawAllStreamsWhenTheControlServiceEnds) {
    const PacingLoop loop(1000, nullptr);
    ASSERT_EQ(StartMuxServer(0), 0);  // on any port
    wait_until([] { return !sockets(SO_ACCEPTCONN, 1).empty(); });
    EXPECT_EQ(streams(), 4u);
    // Not send(): to ThreadSanitizer, its use of the other thread's descriptor is a race.
    for (const int fd : sockets(SO_DOMAIN, AF_UNIX)) {
        syscall(SYS_sendto, fd, "0", 1, 0, nullptr, 0);
    }
    wait_until([] { return streams() == 0; });
    EXPECT_TRUE(sockets(SO_ACCEPTCONN, 1).empty());
}

}  // namespace
