#ifndef KESTAN_FRAMEWORK_LOG_H
#define KESTAN_FRAMEWORK_LOG_H

// The device framework's logger. Once the command line has been read, the program writes
// every line through it. Any thread may call log_function.

// Levels: a lower number is more important. The numbers are those of syslog(3).
constexpr int kLogError = 3;
constexpr int kLogWarning = 4;
constexpr int kLogNotice = 5;
constexpr int kLogInformation = 6;
constexpr int kLogDebug = 7;

// Destinations, combined as a mask.
constexpr int kLogToSystem = 1;
constexpr int kLogToConsole = 2;

// Sets the highest level that is printed (3 to 7) and the destinations. Called once,
// before the first line and before another thread exists.
void log_setup(int level, int destinations);

// Logs one line in printf's format. The format has no newline at its end; `code` is 0.
[[gnu::format(printf, 3, 4)]] void log_function(int level, int code, const char* format,
                                                ...);

#endif
