#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATE_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATE_H

#include <cstdint>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"

// Returns the rate of whole transport packets in bit/s, or 0 if the duration is 0.
[[nodiscard]] inline double bit_rate(std::uint64_t packets, std::int64_t duration_ns) {
    if (duration_ns <= 0) return 0;
    return static_cast<double>(packets * kTsPacketBits) * kNsPerSecond /
           static_cast<double>(duration_ns);
}

#endif
