#include "tools/kestan-monitor/report/text_format.h"

#include <fmt/format.h>

#include <array>
#include <ctime>

#include "dvb/nanoseconds.h"

namespace {

std::tm local_time(std::int64_t civil) {
    const std::time_t seconds = civil / kNsPerSecond;
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
}

std::string formatted_time(const std::tm& time, const char* pattern) {
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), pattern, &time);
    return text.data();
}

std::string milliseconds(std::int64_t civil) {
    return fmt::format(".{:03}", civil % kNsPerSecond / kNsPerMs);
}

}  // namespace

double to_ms(double ns) {
    return ns / static_cast<double>(kNsPerMs);
}

double to_ms(std::int64_t ns) {
    return to_ms(static_cast<double>(ns));
}

double to_seconds(std::int64_t ns) {
    return static_cast<double>(ns) / static_cast<double>(kNsPerSecond);
}

std::string ms_text(std::int64_t ns) {
    return fmt::format("{:.1f} ms", to_ms(ns));
}

std::string time_of_day(std::int64_t civil) {
    return formatted_time(local_time(civil), "%H:%M:%S") + milliseconds(civil);
}

std::string date_and_time(std::int64_t civil) {
    const std::tm local = local_time(civil);
    std::string zone = formatted_time(local, "%z");  // "+0200"
    if (zone.size() == 5) zone.insert(3, ":");
    return formatted_time(local, "%Y-%m-%dT%H:%M:%S") + milliseconds(civil) + zone;
}

std::int64_t utc_offset(std::int64_t civil) {
    return local_time(civil).tm_gmtoff * kNsPerSecond;
}

std::string utc_date_and_time(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm utc{};
    gmtime_r(&time, &utc);
    return formatted_time(utc, "%Y-%m-%d %H:%M:%S");
}
