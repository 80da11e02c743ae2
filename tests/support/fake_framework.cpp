#include "tests/support/fake_framework.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "framework/clock.h"
#include "framework/log.h"
#include "framework/watchdog.h"

namespace {

std::mutex log_mutex;
std::vector<std::string> log_lines;

}  // namespace

std::vector<std::string> fake_framework::take_log() {
    const std::lock_guard lock(log_mutex);
    return std::exchange(log_lines, {});
}

void log_function(int level, int /*code*/, const char* format, ...) {
    std::array<char, 512> text{};
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const std::lock_guard lock(log_mutex);
    log_lines.push_back(std::to_string(level) + " " + text.data());
}

int IsSystemTimeSet() {
    ++fake_framework::clock.set_asked;
    return fake_framework::clock.is_set;
}

std::int64_t GetUTCTime() {
    return fake_framework::clock.utc;
}

void watchdog_kick(int handle) {
    if (fake_framework::on_kick) fake_framework::on_kick(handle);
}
