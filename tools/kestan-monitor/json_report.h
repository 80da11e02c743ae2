#ifndef KESTAN_TOOLS_KESTAN_MONITOR_JSON_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_JSON_REPORT_H

#include <string>

#include "tools/kestan-monitor/report.h"

// One JSON object, ended by '\n', as kestan-monitor.schema.json describes it: rates are
// bit/s, PIDs numbers; keys have their units. Keys are added, never changed or removed.
[[nodiscard]] std::string json_report(const Report& report);

#endif
