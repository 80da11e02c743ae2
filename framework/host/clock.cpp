#include "framework/clock.h"

#include <sys/timex.h>

#include <ctime>

#include "dvb/psi_si.h"

namespace {

// Not std::chrono::system_clock: on a 32-bit target, a prebuilt C++ library counts its
// seconds in 32 bits, which end in 2038.
std::int64_t now_in_seconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

bool is_synchronised() {
    timex state{};
    return adjtimex(&state) >= 0 && (state.status & STA_UNSYNC) == 0;
}

bool is_before_build_year() {
    const auto now = static_cast<std::time_t>(now_in_seconds());
    std::tm utc{};
    if (gmtime_r(&now, &utc) == nullptr) return true;
    return utc.tm_year + 1900 < KESTAN_BUILD_YEAR;
}

std::int64_t bcd(std::int64_t two_digits) {
    return two_digits / 10 * 16 + two_digits % 10;
}

}  // namespace

int IsSystemTimeSet() {
    return is_synchronised() || !is_before_build_year() ? 0 : -1;
}

std::int64_t GetUTCTime() {
    const std::int64_t now = now_in_seconds();
    if (now < 0) return 0;
    const std::int64_t mjd = kMjdOfEpoch + now / kSecondsPerDay;
    const std::int64_t second = now % kSecondsPerDay;
    return mjd << 24 | bcd(second / 3600) << 16 | bcd(second / 60 % 60) << 8 |
           bcd(second % 60);
}
