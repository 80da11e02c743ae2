// The pacing loop allocates nothing.

#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "dvb/nanoseconds.h"
#include "tests/support/pacing_loop.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"

namespace {

bool counting = false;
std::size_t allocations = 0;
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

}  // namespace

// Not inlined: GCC would warn of free() on memory that it saw operator new return.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (counting) ++allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
