#include "tools/kestan-monitor/measure/text_format.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"

namespace {

constexpr std::size_t kMaxLine = 256;

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
    return format(".%03d", static_cast<int>(civil % kNsPerSecond / kNsPerMs));
}

}  // namespace

std::string format(const char* pattern, ...) {
    std::array<char, kMaxLine> text{};
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text.data(), text.size(), pattern, arguments);
    va_end(arguments);
    return text.data();
}

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
    return format("%.1f ms", to_ms(ns));
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

double bit_rate(std::uint64_t packets, std::int64_t duration) {
    if (duration <= 0) return 0;
    return static_cast<double>(packets * kTsPacketBits) / to_seconds(duration);
}
