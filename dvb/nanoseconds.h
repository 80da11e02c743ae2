#ifndef KESTAN_DVB_NANOSECONDS_H
#define KESTAN_DVB_NANOSECONDS_H

#include <chrono>
#include <cstdint>

// Times are int64 nanoseconds of the steady clock: they do not change when somebody sets
// the civil clock.

constexpr std::int64_t kNsPerSecond = 1000000000;
constexpr std::int64_t kNsPerMs = 1000000;

[[nodiscard]] inline std::int64_t steady_now_ns() {
    using std::chrono::duration_cast, std::chrono::nanoseconds, std::chrono::steady_clock;
    return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

#endif
