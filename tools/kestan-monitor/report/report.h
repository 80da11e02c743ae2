#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_REPORT_H

#include <string>

#include "tools/kestan-monitor/measure/bit_rates.h"
#include "tools/kestan-monitor/measure/stream_statistics.h"

// The data that a report shows. Reports for people are in text_report.h, the others here.
struct Report {
    std::string address;  // what was listened to, "226.0.0.10:1234"
    const StreamStatistics& stream;
    BitRates rates;

    // Returns the name of the service, or null if the table is no PMT or has none.
    [[nodiscard]] const std::string* service_name(const TableKey& table) const {
        const auto name = stream.service_names().find(table.service_id);
        const bool has_name =
            table.kind == TableKind::kPmt && name != stream.service_names().end();
        return has_name ? &name->second : nullptr;
    }
};

// Returns the report as one JSON object with '\n' at its end. kestan-monitor.schema.json
// describes it: rates are in bit/s, PIDs are numbers, and other keys name their units.
// Later versions add keys, and never change or remove one.
[[nodiscard]] std::string json_report(const Report& report);

// Returns the figures in Prometheus's text format. A node exporter reads it from its
// textfile folder. The names of a counter and of its samples end with "_total". Every
// sample has the stream's address as a label.
[[nodiscard]] std::string metrics_text(const Report& report);

// Returns an SVG picture of the whole run: one strip per table with its intervals and
// their limit, and the bit rate below. A short run shows each interval as a dot, a long
// one shows the least, the mean and the greatest interval of each piece of time.
// REQUIRES: the stream keeps series.
[[nodiscard]] std::string plot_svg(const Report& report);

#endif
