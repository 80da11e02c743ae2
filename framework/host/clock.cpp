#include "framework/clock.h"

#include <ctime>

#include "dvb/civil_clock.h"
#include "dvb/psi_si.h"

namespace {

bool is_before_build_year() {
    const auto now = static_cast<std::time_t>(civil_now_ns() / kNsPerSecond);
    std::tm utc{};
    if (gmtime_r(&now, &utc) == nullptr) return true;
    return utc.tm_year + 1900 < KESTAN_BUILD_YEAR;
}

std::int64_t bcd(std::int64_t two_digits) {
    return two_digits / 10 * 16 + two_digits % 10;
}

}  // namespace

int IsSystemTimeSet() {
    return is_civil_clock_synchronised() || !is_before_build_year() ? 0 : -1;
}

std::int64_t GetUTCTime() {
    const std::int64_t now = civil_now_ns() / kNsPerSecond;
    if (now < 0) return 0;
    const std::int64_t mjd = kMjdOfEpoch + now / kSecondsPerDay;
    const std::int64_t second = now % kSecondsPerDay;
    return mjd << 24 | bcd(second / 3600) << 16 | bcd(second / 60 % 60) << 8 |
           bcd(second % 60);
}
