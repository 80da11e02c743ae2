#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_BIT_RATES_H

#include <cstdint>
#include <map>
#include <utility>

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
    [[nodiscard]] BitRates measure(const StreamStatistics& stream) {
        BitRates rates;
        const std::int64_t time =
            stream.duration() - std::exchange(duration_, stream.duration());
        const std::uint64_t packets = std::exchange(packets_, stream.packets());
        rates.stream = bit_rate(stream.packets() - packets, time);
        for (const auto& [number, pid] : stream.pids()) {
            const std::uint64_t before = std::exchange(pid_packets_[number], pid.packets);
            rates.pids[number] = bit_rate(pid.packets - before, time);
        }
        return rates;
    }

private:
    std::int64_t duration_ = 0;
    std::uint64_t packets_ = 0;
    std::map<std::uint16_t, std::uint64_t> pid_packets_;
};

#endif
