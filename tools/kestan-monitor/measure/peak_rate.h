#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PEAK_RATE_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PEAK_RATE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"

// Returns the rate of whole transport packets in bit/s, or 0 if the duration is 0.
[[nodiscard]] inline double bit_rate(std::uint64_t packets, std::int64_t duration_ns) {
    if (duration_ns <= 0) return 0;
    return static_cast<double>(packets * kTsPacketBits) * kNsPerSecond /
           static_cast<double>(duration_ns);
}

// The length of the sliding window of the peak bit rate.
constexpr std::int64_t kPeakWindowNs = 100 * kNsPerMs;

// The greatest bit rate over a sliding window. A datagram counts in full from its arrival
// until it is as old as the window is long. One thread.
class PeakRate {
public:
    // Adds a datagram. REQUIRES: `now` is not before that of the last call.
    void add(std::int64_t now, std::size_t packets) {
        window_.emplace_back(now, packets);
        in_window_ += packets;
        while (window_.front().first <= now - kPeakWindowNs) {
            in_window_ -= window_.front().second;
            window_.pop_front();
        }
        peak_ = std::max(peak_, in_window_);
    }

    // Returns the rate in bit/s.
    [[nodiscard]] double value() const { return bit_rate(peak_, kPeakWindowNs); }

private:
    std::deque<std::pair<std::int64_t, std::size_t>> window_;  // arrivals, packets
    std::size_t in_window_ = 0;
    std::size_t peak_ = 0;
};

#endif
