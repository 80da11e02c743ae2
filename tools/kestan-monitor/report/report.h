#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_REPORT_H

#include <cstdint>
#include <map>
#include <string>

#include "tools/kestan-monitor/measure/bit_rates.h"
#include "tools/kestan-monitor/measure/stream_statistics.h"

// The data that a report shows.
struct Report {
    std::string address;  // what was listened to, "226.0.0.10:1234"
    const StreamStatistics& stream;
    BitRates rates;
    std::map<std::uint16_t, std::string> service_names;  // by service_id
};

#endif
