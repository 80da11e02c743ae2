#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_PLOT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_PLOT_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "tools/kestan-monitor/measure/time_series.h"
#include "tools/kestan-monitor/report/report.h"

// Collects the data for a picture of a run and draws it: one strip per table with its
// intervals and their limit, and the bit rate below.
//
// A short run shows each interval as a dot, a long one shows the least, the mean and the
// greatest interval of each piece of time. Memory is bounded, however long the run is.
// Times are nanoseconds of the steady clock. One thread.
class Plot {
public:
    explicit Plot(std::int64_t start) : start_(start) {}

    void add_interval(std::uint16_t pid, const TableKey& table, std::int64_t now,
                      std::int64_t interval);
    void add_packets(std::int64_t now, std::size_t packets);

    // Returns an SVG picture of the time from the start to `end`.
    [[nodiscard]] std::string svg(const Report& report, std::int64_t end) const;

private:
    std::int64_t start_;
    std::map<std::pair<std::uint16_t, TableKey>, TimeSeries> intervals_;
    TimeSeries packets_;
};

#endif
