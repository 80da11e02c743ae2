#ifndef KESTAN_FRAMEWORK_LOG_H
#define KESTAN_FRAMEWORK_LOG_H

// The device framework's logger. Every line of the program after the command line has
// been read goes through it. Any thread may call it.

// Levels, a lower one being the more important; the numbers are those of syslog(3).
constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogNotice = 5;
constexpr int kLogInformation = 6;
constexpr int kLogDebug = 7;

// Destinations, a mask.
constexpr int kLogToSystem = 1;
constexpr int kLogToConsole = 2;

// Prints lines up to and including `level` (3 to 7) to `destinations`. Called once,
// before the first line and before any other thread exists.
void log_setup(int level, int destinations);

// Logs one line in printf's format, without a newline at its end. `code` is 0.
[[gnu::format(printf, 3, 4)]] void log_function(int level, int code, const char* format,
                                                ...);

#endif
