#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_SERIES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_SERIES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "dvb/nanoseconds.h"
#include "tools/kestan-monitor/measure/fault.h"

// The least, the mean and the greatest value of a series; all are 0 while it is empty.
struct Spread {
    void add(std::int64_t value) { add(Spread{value, value, value, 1}); }

    void add(const Spread& other) {
        if (other.count == 0) return;
        least = count == 0 ? other.least : std::min(least, other.least);
        greatest = count == 0 ? other.greatest : std::max(greatest, other.greatest);
        sum += other.sum;
        count += other.count;
    }

    [[nodiscard]] double mean() const {
        return count == 0 ? 0 : static_cast<double>(sum) / static_cast<double>(count);
    }

    std::int64_t least = 0;
    std::int64_t greatest = 0;
    std::int64_t sum = 0;
    std::uint64_t count = 0;
};

// A series of values over time, in bounded memory: the first kMaxPoints values, and all
// of them in bins of time. When the bins do not reach far enough, each two are merged
// into one. Times are nanoseconds from any start, not negative. One thread.
class TimeSeries {
public:
    static constexpr std::size_t kMaxPoints = 1000;
    static constexpr std::size_t kMaxBins = 600;

    void add(std::int64_t time, std::int64_t value) {
        total_.add(value);
        if (points_.size() < kMaxPoints) points_.emplace_back(time, value);
        while (time / bin_width_ >= static_cast<std::int64_t>(kMaxBins)) halve();
        const auto bin = static_cast<std::size_t>(time / bin_width_);
        if (bins_.size() <= bin) bins_.resize(bin + 1);
        bins_[bin].add(value);
    }

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
    void halve() {
        std::vector<Spread> wider((bins_.size() + 1) / 2);
        for (std::size_t i = 0; i < bins_.size(); ++i) wider[i / 2].add(bins_[i]);
        bins_.swap(wider);
        bin_width_ *= 2;
    }

    std::vector<std::pair<std::int64_t, std::int64_t>> points_;
    std::vector<Spread> bins_;
    std::int64_t bin_width_ = 100 * kNsPerMs;
    Spread total_;
};

// What a stream has been like since the time `start`: the intervals between sections of
// one number, by PID and table, and the packets of its datagrams.
struct StreamSeries {
    std::int64_t start;
    std::map<std::pair<std::uint16_t, TableKey>, TimeSeries> intervals = {};
    TimeSeries packets = {};
};

#endif
