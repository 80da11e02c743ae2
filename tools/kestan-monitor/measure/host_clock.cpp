#include "tools/kestan-monitor/measure/host_clock.h"

#include <sys/timex.h>

#include <chrono>

#include "dvb/nanoseconds.h"

HostClock read_host_clock() {
    using std::chrono::duration_cast, std::chrono::nanoseconds, std::chrono::system_clock;
    const auto civil = system_clock::now().time_since_epoch();
    timex state{};  // no modes: it is only read
    const bool is_synchronised =
        adjtimex(&state) != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    return {duration_cast<nanoseconds>(civil).count() - steady_now_ns(), is_synchronised};
}
