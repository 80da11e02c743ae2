#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_HOST_CLOCK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_HOST_CLOCK_H

#include <cstdint>

// This host's civil clock.
struct HostClock {
    std::int64_t civil_minus_steady;  // nanoseconds
    bool is_synchronised;             // the kernel says so: NTP or PTP steers it
};

[[nodiscard]] HostClock read_host_clock();

#endif
