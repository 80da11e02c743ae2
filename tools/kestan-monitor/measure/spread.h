#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_SPREAD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_SPREAD_H

#include <algorithm>
#include <cstdint>

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

#endif
