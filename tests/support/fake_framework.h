#ifndef KESTAN_TESTS_SUPPORT_FAKE_FRAMEWORK_H
#define KESTAN_TESTS_SUPPORT_FAKE_FRAMEWORK_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// A fake of the device framework for unit tests: they set its answers and read what it
// was told. One thread, except log_function, which any thread may call.
namespace fake_framework {

struct Clock {
    int is_set = 0;                   // what IsSystemTimeSet returns
    std::uint64_t set_asked = 0;      // how often it was called
    std::int64_t utc = 0xC079124500;  // what GetUTCTime returns: 1993-10-13 12:45:00
};
inline Clock clock;

// watchdog_kick calls this with its handle.
inline std::function<void(int)> on_kick;

// Returns the lines logged since the last call, as "<level> <text>".
[[nodiscard]] std::vector<std::string> take_log();

}  // namespace fake_framework

#endif
