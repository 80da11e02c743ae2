#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MONITOR_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MONITOR_REPORT_H

#include <string>

#include "tools/kestan-monitor/stream_figures.h"

// How figures are shown: `address` is what was listened to, "226.0.0.10:1234".

// A table for people, about 90 columns wide, and what is outside the limits, in lines
// that end with '\n'.
[[nodiscard]] std::string text_report(const std::string& address,
                                      const StreamFigures& figures);

// One JSON object, ended by '\n'. Rates are bit/s, PIDs numbers; keys have their units.
[[nodiscard]] std::string json_report(const std::string& address,
                                      const StreamFigures& figures);

// `now` with the bit rates of the time since `before`, an earlier moment of the stream.
[[nodiscard]] StreamFigures with_rates_since(StreamFigures now,
                                             const StreamFigures& before);

#endif
