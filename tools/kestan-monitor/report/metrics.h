#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_METRICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_METRICS_H

#include <string>

#include "tools/kestan-monitor/report/report.h"

// Returns the figures of `report` in Prometheus's text format. A node exporter reads it
// from its textfile folder. The names of a counter and of its samples end with "_total".
// Every sample has the stream's address as a label.
[[nodiscard]] std::string metrics_text(const Report& report);

#endif
