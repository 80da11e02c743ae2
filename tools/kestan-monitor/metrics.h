#ifndef KESTAN_TOOLS_KESTAN_MONITOR_METRICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_METRICS_H

#include <string>

#include "tools/kestan-monitor/report.h"

// The figures of `report` for Prometheus and its kin, as text in Prometheus's format that its
// node exporter reads, too: a counter's type and its samples have one name, which ends
// with "_total". Every sample is labelled with the stream's address.
[[nodiscard]] std::string metrics_text(const Report& report);

#endif
