#ifndef KESTAN_DVB_CIVIL_CLOCK_H
#define KESTAN_DVB_CIVIL_CLOCK_H

#include <sys/timex.h>

#include <cstdint>
#include <ctime>

#include "dvb/nanoseconds.h"

// This host's civil clock.

// Returns nanoseconds since 1970. Not std::chrono::system_clock: on a 32-bit target, a
// prebuilt C++ library counts its seconds in 32 bits, which end in 2038.
[[nodiscard]] inline std::int64_t civil_now_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

// Returns how far the civil clock is ahead of the steady clock, from the readings of both
// that were the least interrupted.
[[nodiscard]] inline std::int64_t civil_minus_steady_ns() {
    constexpr int readings = 4;
    std::int64_t shortest = INT64_MAX;
    std::int64_t difference = 0;
    for (int i = 0; i < readings; ++i) {
        const std::int64_t before = steady_now_ns();
        const std::int64_t civil = civil_now_ns();
        const std::int64_t took = steady_now_ns() - before;
        if (took >= shortest) continue;
        shortest = took;
        difference = civil - before;
    }
    return difference;
}

// Returns whether the kernel says that NTP or PTP steers the clock. A kernel that refuses
// to say (a container, a filter of system calls) does not.
[[nodiscard]] inline bool is_civil_clock_synchronised() {
    timex state{};  // no modes: it is only read
    return adjtimex(&state) >= 0 && (state.status & STA_UNSYNC) == 0;
}

#endif
