#ifndef KESTAN_FRAMEWORK_CLOCK_H
#define KESTAN_FRAMEWORK_CLOCK_H

#include <cstdint>

// The device framework's civil clock. Both calls must return promptly: the pacing loop
// makes them while it holds locks.

// Returns 0 if the system clock has been set, and any other value if not.
[[nodiscard]] int IsSystemTimeSet();

// Returns the current UTC in the low 40 bits, coded as the UTC_time of ETSI EN 300 468,
// 5.2.5: a 16-bit Modified Julian Date, then hours, minutes and seconds as two BCD digits
// each. Returns a value below 1 if no time is available.
[[nodiscard]] std::int64_t GetUTCTime();

#endif
