#ifndef KESTAN_TOOLS_KESTAN_MONITOR_METRICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_METRICS_H

#include <string>

#include "tools/kestan-monitor/report.h"

// The figures of `report` in Prometheus's text format, which a node exporter's textfile
// folder takes too. The name of a counter's type and of its samples ends with "_total".
// Every sample has the stream's address as a label.
[[nodiscard]] std::string metrics_text(const Report& report);

#endif
