#include "framework/log.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace {

// Written by log_setup before any other thread exists, then only read.
int highest_level = kLogNotice;
int log_destinations = kLogToSystem;

const char* level_name(int level) {
    switch (level) {
        case kLogError:
            return "ERROR";
        case kLogWarning:
            return "WARNING";
        case kLogNotice:
            return "NOTICE";
        case kLogInformation:
            return "INFORMATION";
        case kLogDebug:
            return "DEBUG";
        default:
            return "?";
    }
}

// Returns the text as one line: text from the network must not forge another line.
std::string format_text(const char* format, std::va_list arguments) {
    char* formatted = nullptr;
    const int length = vasprintf(&formatted, format, arguments);
    if (length < 0) return format;
    const std::unique_ptr<char, decltype(&std::free)> owner(formatted, std::free);
    std::string text(formatted, static_cast<std::size_t>(length));
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    return text;
}

std::string local_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%F %T", &local);
    std::array<char, 48> time{};
    std::snprintf(time.data(), time.size(), "%s.%03d", date.data(),
                  static_cast<int>(now.tv_nsec / 1000000));
    return time.data();
}

std::string thread_name() {
    std::array<char, 16> name{};  // the kernel's limit
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return name.data();
}

// Writes the line with one call: lines of several threads never mix.
void write_to_console(int level, const std::string& text) {
    const std::string line =
        local_time() + " " + level_name(level) + " " + thread_name() + ": " + text + "\n";
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

void log_setup(int level, int destinations) {
    highest_level = level;
    log_destinations = destinations;
    if ((destinations & kLogToSystem) != 0) openlog("kestan", LOG_PID, LOG_DAEMON);
}

void log_function(int level, int /*code*/, const char* format, ...) {
    if (level > highest_level) return;
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = format_text(format, arguments);
    va_end(arguments);
    if ((log_destinations & kLogToSystem) != 0) syslog(level, "%s", text.c_str());
    if ((log_destinations & kLogToConsole) != 0) write_to_console(level, text);
}
