#include "tests/support/simulated_clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "dvb/nanoseconds.h"

namespace {

// Starts one hour after the start of the machine, and not at a whole millisecond.
std::int64_t clock_ns = 3600 * kNsPerSecond + 7;
std::optional<std::int64_t> interruption_ns;

timespec to_timespec(std::int64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    time.tv_nsec = static_cast<long>(ns % kNsPerSecond);
    return time;
}

}  // namespace

std::int64_t simulated_clock::now_ns() {
    return clock_ns;
}

void simulated_clock::advance(std::int64_t ns) {
    clock_ns += ns;
}

void simulated_clock::interrupt_next_sleep_after(std::int64_t ns) {
    interruption_ns = ns;
}

#ifdef __USE_TIME_BITS64
// On a 32-bit target the names below stand for functions of 64-bit time. A library that
// was built without it, such as libstdc++, calls the function with the plain name.
struct ShortTimespec {
    std::int32_t tv_sec;
    std::int32_t tv_nsec;
};
extern "C" int short_clock_gettime(clockid_t clock, ShortTimespec* time) noexcept
    __asm__("clock_gettime");
extern "C" int short_clock_gettime(clockid_t clock, ShortTimespec* time) noexcept {
    timespec whole{};
    const int result = clock_gettime(clock, &whole);
    time->tv_sec = static_cast<std::int32_t>(whole.tv_sec);
    time->tv_nsec = static_cast<std::int32_t>(whole.tv_nsec);
    return result;
}
constexpr long kClockGettime = SYS_clock_gettime64;
#else
constexpr long kClockGettime = SYS_clock_gettime;
#endif

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (clock != CLOCK_MONOTONIC) {
        return static_cast<int>(syscall(kClockGettime, clock, time));
    }
    *time = to_timespec(clock_ns);
    return 0;
}

extern "C" int nanosleep(const timespec* duration, timespec* remaining) {
    const std::int64_t asked = duration->tv_sec * kNsPerSecond + duration->tv_nsec;
    const std::int64_t slept = std::exchange(interruption_ns, {}).value_or(asked);
    clock_ns += slept;
    if (simulated_clock::on_sleep) simulated_clock::on_sleep();
    if (slept >= asked) return 0;
    *remaining = to_timespec(asked - slept);
    errno = EINTR;
    return -1;
}
