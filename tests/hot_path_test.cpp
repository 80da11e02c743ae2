// What allocates memory: the pacing loop never does, and a call that cannot changes
// nothing.

#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "dvb/nanoseconds.h"
#include "mux/muxer.h"
#include "tests/support/fake_framework.h"
#include "tests/support/pacing_loop.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"

namespace {

bool counting = false;
std::size_t allocations = 0;
std::size_t allocations_until_failure = 0;  // none fails
std::size_t bytes_sent = 0;

// Tables of every kind, of one and of several sections; PMTs share PIDs or do not.
void push_tables(cm_MuxControlSrvHandler& handler) {
    RandomTables random(1);
    handler.NewPAT(random.pat(250));
    handler.NewCAT(random.cat(1500));
    handler.NewSDTActual(random.sdt(60, 50));
    for (std::int16_t service = 1; service <= 300; ++service) {
        handler.NewPMT(random.pmt(service, 1 + random.below(1000)),
                       static_cast<std::int16_t>(0x20 + random.below(150)));
    }
}

TEST(HotPath, AllocatesNothing) {
    for (const std::uint32_t kbps : {1000u, 50000u}) {  // with too much due, and little
        const PacingLoop loop(kbps, [](const std::uint8_t*, std::uint32_t length) {
            bytes_sent += length;
            return 0;
        });
        cm_MuxControlSrvHandler handler;
        push_tables(handler);
        bytes_sent = 0;
        const std::int64_t end = simulated_clock::now_ns() + 10 * kNsPerSecond;
        simulated_clock::on_sleep = [end] {
            if (simulated_clock::now_ns() < end) return;
            counting = false;
            throw EndOfRun();
        };
        counting = true;
        PacingLoop::run();
        simulated_clock::on_sleep = nullptr;
        EXPECT_EQ(allocations, 0u);
        EXPECT_GT(bytes_sent, 1000000u);
    }
}

// Makes the call fail at its first allocation, then at its second one, and so on, until
// it succeeds. Each failure must be logged.
template <typename Call>
void call_with_each_allocation_failing(const std::string& method, Call call) {
    for (std::size_t failing = 1;; ++failing) {
        allocations_until_failure = failing;
        try {
            call();
            allocations_until_failure = 0;
            EXPECT_GT(failing, 3u) << method;
            return;
        } catch (const std::bad_alloc&) {
            const auto log = fake_framework::take_log();
            ASSERT_FALSE(log.empty()) << method;
            EXPECT_EQ(log.back(),
                      "3 " + method + ": out of memory, the table before it plays on");
        }
    }
}

TEST(Handler, LogsWhenItHasNoMemory) {
    const PacingLoop loop(1000, nullptr);
    cm_MuxControlSrvHandler handler;
    RandomTables random(1);
    const auto pat = random.pat(5);
    const auto cat = random.cat(100);
    const auto sdt = random.sdt(3, 50);
    const auto pmt = random.pmt(1, 100);
    call_with_each_allocation_failing("NewPAT", [&] { handler.NewPAT(pat); });
    call_with_each_allocation_failing("NewCAT", [&] { handler.NewCAT(cat); });
    call_with_each_allocation_failing("NewSDTActual", [&] { handler.NewSDTActual(sdt); });
    call_with_each_allocation_failing("NewPMT", [&] { handler.NewPMT(pmt, 0x20); });
    EXPECT_EQ(the_muxer->streams.size(), 5u);
}

}  // namespace

// Not inlined: GCC would warn of free() on memory that it saw operator new return.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (counting) ++allocations;
    if (allocations_until_failure > 0 && --allocations_until_failure == 0) {
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
