#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_JSON_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_JSON_REPORT_H

#include <string>

#include "tools/kestan-monitor/report/report.h"

// Returns the report as one JSON object with '\n' at its end. kestan-monitor.schema.json
// describes it: rates are in bit/s, PIDs are numbers, and other keys name their units.
// Later versions add keys, and never change or remove one.
[[nodiscard]] std::string json_report(const Report& report);

#endif
