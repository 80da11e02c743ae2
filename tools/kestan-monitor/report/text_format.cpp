#include "tools/kestan-monitor/report/text_format.h"

#include <fmt/chrono.h>

#include <ctime>

namespace {

std::tm local_time(std::int64_t civil) {
    return fmt::localtime(civil / kNsPerSecond);
}

std::int64_t milliseconds(std::int64_t civil) {
    return civil % kNsPerSecond / kNsPerMs;
}

}  // namespace

std::string ms_text(std::int64_t ns) {
    return fmt::format("{:.1f} ms", to_ms(ns));
}

std::string time_of_day(std::int64_t civil) {
    return fmt::format("{:%T}.{:03}", local_time(civil), milliseconds(civil));
}

std::string date_and_time(std::int64_t civil) {
    const std::tm local = local_time(civil);
    std::string zone = fmt::format("{:%z}", local);  // "+0200"
    zone.insert(3, ":");
    return fmt::format("{:%FT%T}.{:03}{}", local, milliseconds(civil), zone);
}

std::int64_t utc_offset(std::int64_t civil) {
    return local_time(civil).tm_gmtoff * kNsPerSecond;
}

std::string utc_date_and_time(std::int64_t seconds) {
    return fmt::format("{:%F %T}", fmt::gmtime(seconds));
}
