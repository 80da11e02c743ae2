#ifndef KESTAN_FRAMEWORK_CLOCK_H
#define KESTAN_FRAMEWORK_CLOCK_H

#include <cstdint>

// The device framework's civil clock. Both calls return promptly: the pacing loop makes
// them while it holds locks.

// 0 once the system clock shows the right time, any other value before.
[[nodiscard]] int IsSystemTimeSet();

// The current UTC in its low 40 bits, coded as the UTC_time of ETSI EN 300 468, 5.2.5: a
// 16-bit Modified Julian Date, then hours, minutes and seconds as two BCD digits each. A
// value below 1 when no time is available.
[[nodiscard]] std::int64_t GetUTCTime();

#endif
