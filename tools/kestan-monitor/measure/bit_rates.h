#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATES_H

#include <cstdint>
#include <map>

#include "tools/kestan-monitor/measure/stream_statistics.h"

// Bit rates in bit/s. They count whole transport packets, without the headers of UDP and
// IP.
struct BitRates {
    double stream = 0;
    std::map<std::uint16_t, double> pids;
};

// Measures bit rates from one call to the next. One thread.
class RateMeter {
public:
    // Returns the rates since the last call. The first call returns those since the first
    // datagram.
    [[nodiscard]] BitRates measure(const StreamStatistics& stream);

private:
    std::int64_t duration_ = 0;
    std::uint64_t packets_ = 0;
    std::map<std::uint16_t, std::uint64_t> pid_packets_;
};

#endif
