// Checks what the handler leaves behind when a mutex cannot be locked.

#include <pthread.h>

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <system_error>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "dvb/nanoseconds.h"
#include "mux/muxer.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"

using orvel::thrift::dvb_tables::PMT;

// The test program is linked so that these stand in for pthread_mutex_lock.
extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);

namespace {

int locks_until_failure = 0;  // none fails
int failures_in_a_row = 0;

// Makes the call's n-th lock fail. Returns whether the call came to it.
bool fails_at(int lock, const std::function<void()>& call) {
    locks_until_failure = lock;
    failures_in_a_row = 1;
    try {
        call();
    } catch (const std::system_error&) {
        return true;
    }
    locks_until_failure = 0;
    return false;
}

TEST(FailingLocks, LeaveNoPmtHalfInstalled) {
    Playout playout(10000);
    RandomTables random(17);
    cm_MuxControlSrvHandler handler;
    const PMT pmts[] = {random.pmt(1, 100), random.pmt(2, 100), random.pmt(3, 100)};
    const struct {
        const char* what;
        std::function<void()> call;
        int on_pid_20, on_pid_21;  // services
        std::size_t streams;       // the four fixed ones among them
    } steps[] = {
        {"first on its PID", [&] { handler.NewPMT(pmts[0], 0x20); }, 1, 0, 5},
        {"second", [&] { handler.NewPMT(pmts[1], 0x20); }, 2, 0, 5},
        {"on another PID", [&] { handler.NewPMT(pmts[2], 0x21); }, 2, 1, 6},
        {"new version", [&] { handler.NewPMT(pmts[1], 0x20); }, 2, 1, 6},
        {"stop one of two", [&] { handler.StopPMT(1, 0); }, 1, 1, 6},
        {"stop the last", [&] { handler.StopPMT(2, 0); }, 0, 1, 5},
        {"clear", [&] { handler.ClearAllTables(); }, 0, 0, 4},
    };
    for (const auto& step : steps) {
        int lock = 1;
        while (fails_at(lock, step.call)) ++lock;
        EXPECT_GT(lock, 1) << step.what;
        EXPECT_EQ(the_muxer->streams.size(), step.streams) << step.what;
        std::map<std::uint16_t, int> packets;
        for (const Datagram& datagram : playout.run_for(10 * kNsPerSecond)) {
            for (const std::uint16_t pid : datagram.pids()) ++packets[pid];
        }
        EXPECT_NEAR(packets[0x20], 50 * step.on_pid_20, 1) << step.what;
        EXPECT_NEAR(packets[0x21], 50 * step.on_pid_21, 1) << step.what;
    }
}

// After the locks of the log and of the muxer, that of the carrousel fails, and then the
// one that takes it off the muxer.
TEST(FailingLocks, LeakACarrouselThatStaysOnTheMuxer) {
    const Playout playout(10000);
    cm_MuxControlSrvHandler handler;
    locks_until_failure = 3;
    failures_in_a_row = 2;
    EXPECT_THROW(handler.NewPMT(RandomTables(1).pmt(1, 100), 0x20), std::system_error);
    ASSERT_EQ(the_muxer->streams.size(), 5u);
    const std::unique_ptr<muxed_stream> leaked(&the_muxer->streams.back());
    muxer_remove(*leaked);
}

TEST(FailingLocks, LeaveNoStreamRegistered) {
    const Playout playout(10000);
    for (int failing = 1; failing <= 4; ++failing) {  // each registration takes a lock
        locks_until_failure = failing;
        EXPECT_THROW(cm_MuxControlSrvHandler(), std::system_error);
        EXPECT_EQ(the_muxer->streams.size(), 0u) << failing;
    }
}

}  // namespace

extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (locks_until_failure == 0 || --locks_until_failure > 0) {
        return __real_pthread_mutex_lock(mutex);
    }
    if (--failures_in_a_row > 0) locks_until_failure = 1;
    return EAGAIN;
}
