#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TIME_SERIES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TIME_SERIES_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "dvb/nanoseconds.h"
#include "tools/kestan-monitor/measure/spread.h"

// A series of values over time, in bounded memory: the first kMaxPoints values, and all
// of them in bins of time. When the bins do not reach far enough, each two are merged
// into one. Times are nanoseconds from any start, not negative. One thread.
class TimeSeries {
public:
    static constexpr std::size_t kMaxPoints = 1000;
    static constexpr std::size_t kMaxBins = 600;

    void add(std::int64_t time, std::int64_t value);

    // Returns all values with their times. REQUIRES: has_all_points().
    [[nodiscard]] const std::vector<std::pair<std::int64_t, std::int64_t>>& points()
        const {
        return points_;
    }
    [[nodiscard]] bool has_all_points() const { return total_.count <= kMaxPoints; }

    // Returns the bins from time 0 on, each bin_width() long.
    [[nodiscard]] const std::vector<Spread>& bins() const { return bins_; }
    [[nodiscard]] std::int64_t bin_width() const { return bin_width_; }

    [[nodiscard]] const Spread& total() const { return total_; }

private:
    void halve();

    std::vector<std::pair<std::int64_t, std::int64_t>> points_;
    std::vector<Spread> bins_;
    std::int64_t bin_width_ = 100 * kNsPerMs;
    Spread total_;
};

#endif
