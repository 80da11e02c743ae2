#ifndef KESTAN_TESTS_SUPPORT_FAKE_FRAMEWORK_H
#define KESTAN_TESTS_SUPPORT_FAKE_FRAMEWORK_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The device framework as unit tests see it: what it answers, and what it was told. One
// thread, but for log_function, which any may call.
namespace fake_framework {

struct Clock {
    int is_set = 0;                   // what IsSystemTimeSet returns
    std::uint64_t set_asked = 0;      // how often it was called
    std::int64_t utc = 0xC079124500;  // what GetUTCTime returns: 1993-10-13 12:45:00
};
extern Clock clock;

// Called by watchdog_kick with its handle.
extern std::function<void(int)> on_kick;

// The lines logged since the last call, as "<level> <text>".
[[nodiscard]] std::vector<std::string> take_log();

}  // namespace fake_framework

#endif
