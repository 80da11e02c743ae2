#include "tools/kestan-monitor/measure/bit_rates.h"

#include <utility>

#include "tools/kestan-monitor/measure/bit_rate.h"

BitRates RateMeter::measure(const StreamStatistics& stream) {
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
