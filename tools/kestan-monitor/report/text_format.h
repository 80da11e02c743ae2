#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_FORMAT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "dvb/nanoseconds.h"

// Numbers, times and columns of text as the reports show them. Durations and times are
// nanoseconds.

constexpr double kBitsPerKbit = 1000;

[[nodiscard]] constexpr double to_ms(double ns) {
    return ns / kNsPerMs;
}
[[nodiscard]] constexpr double to_ms(std::int64_t ns) {
    return to_ms(static_cast<double>(ns));
}
[[nodiscard]] constexpr double to_seconds(std::int64_t ns) {
    return static_cast<double>(ns) / kNsPerSecond;
}

// Writes a time of the civil clock as local time: "12:45:01.250".
[[nodiscard]] std::string time_of_day(std::int64_t civil);

// Writes the same with its date and its distance from UTC:
// "2026-06-15T12:45:01.250+02:00".
[[nodiscard]] std::string date_and_time(std::int64_t civil);

// Returns how far local time is ahead of UTC at a time of the civil clock, in
// nanoseconds.
[[nodiscard]] std::int64_t utc_offset(std::int64_t civil);

// Writes seconds since 1970 as UTC: "2026-06-15 12:45:00".
[[nodiscard]] std::string utc_date_and_time(std::int64_t seconds);

// Widths of UTF-8 text in columns of a terminal. A byte that is not UTF-8 takes one
// column.

[[nodiscard]] std::size_t text_width(const std::string& text);

// Returns as much of `text` as fits in `columns`, with "…" at its end if a part is
// missing.
[[nodiscard]] std::string cut(const std::string& text, std::size_t columns);

// Returns `text`, cut or filled with blanks to exactly `columns`.
[[nodiscard]] std::string padded(const std::string& text, std::size_t columns);

#endif
