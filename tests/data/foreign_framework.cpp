// A device framework as its maker would build it, apart from Kestan's tree: what start-up
// calls. The rest is in foreign_tables.cpp.

#include <cstdarg>
#include <cstdio>

#include "framework/log.h"
#include "framework/service_state.h"
#include "framework/watchdog.h"

void log_setup(int /*level*/, int /*destinations*/) {}

void log_function(int level, int /*code*/, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "foreign %d ", level);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}

int watchdog_register_task() {
    return 1;
}
void watchdog_kick(int /*handle*/) {}

int SignalServiceIsStarted(int /*status*/) {
    return 0;
}
