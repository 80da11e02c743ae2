// What allocates memory: the pacing loop never does, and a call that cannot changes
// nothing.

#include <cstdlib>
#include <functional>
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

// Makes the call's n-th allocation fail. Returns whether the call came to it.
bool fails_at(std::size_t allocation, const std::function<void()>& call) {
    allocations_until_failure = allocation;
    try {
        call();
    } catch (const std::bad_alloc&) {
        return true;
    }
    allocations_until_failure = 0;
    return false;
}

TEST(Handler, LogsWhenItHasNoMemory) {
    const PacingLoop loop(1000, nullptr);
    cm_MuxControlSrvHandler handler;
    RandomTables random(1);
    const std::pair<std::string, std::function<void()>> calls[] = {
        {"NewPAT", [&, pat = random.pat(5)] { handler.NewPAT(pat); }},
        {"NewCAT", [&, cat = random.cat(100)] { handler.NewCAT(cat); }},
        {"NewSDTActual", [&, sdt = random.sdt(3, 50)] { handler.NewSDTActual(sdt); }},
        {"NewPMT", [&, pmt = random.pmt(1, 100)] { handler.NewPMT(pmt, 0x20); }},
    };
    for (const auto& [method, call] : calls) {
        std::size_t allocation = 1;
        for (; fails_at(allocation, call); ++allocation) {
            const auto log = fake_framework::take_log();
            ASSERT_FALSE(log.empty()) << method;
            EXPECT_EQ(log.back(),
                      "3 " + method + ": out of memory, the table before it plays on");
        }
        EXPECT_GT(allocation, 3u) << method;
    }
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
