#ifndef KESTAN_TESTS_SUPPORT_SIMULATED_CLOCK_H
#define KESTAN_TESTS_SUPPORT_SIMULATED_CLOCK_H

#include <cstdint>
#include <functional>

// A steady clock that moves only when somebody sleeps or advances it.
//
// A test program that links this has its own clock_gettime (CLOCK_MONOTONIC alone is
// simulated; std::chrono::steady_clock follows) and its own nanosleep, which returns at
// once with the clock advanced by exactly what was asked for. One thread.
namespace simulated_clock {

[[nodiscard]] std::int64_t now_ns();
void advance(std::int64_t ns);

// nanosleep calls this at its end. An exception from it leaves nanosleep.
inline std::function<void()> on_sleep;

// Makes the next nanosleep end after `ns` with EINTR.
void interrupt_next_sleep_after(std::int64_t ns);

}  // namespace simulated_clock

#endif
