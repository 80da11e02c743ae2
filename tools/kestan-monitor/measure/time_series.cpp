#include "tools/kestan-monitor/measure/time_series.h"

void TimeSeries::add(std::int64_t time, std::int64_t value) {
    total_.add(value);
    if (points_.size() < kMaxPoints) points_.emplace_back(time, value);
    while (time / bin_width_ >= static_cast<std::int64_t>(kMaxBins)) halve();
    const auto bin = static_cast<std::size_t>(time / bin_width_);
    if (bins_.size() <= bin) bins_.resize(bin + 1);
    bins_[bin].add(value);
}

void TimeSeries::halve() {
    for (std::size_t i = 0; i * 2 < bins_.size(); ++i) {
        Spread both = bins_[i * 2];
        if (i * 2 + 1 < bins_.size()) both.add(bins_[i * 2 + 1]);
        bins_[i] = both;
    }
    bins_.resize((bins_.size() + 1) / 2);
    bin_width_ *= 2;
}
