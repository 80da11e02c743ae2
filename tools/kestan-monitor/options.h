#ifndef KESTAN_TOOLS_KESTAN_MONITOR_OPTIONS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-monitor/measure/fault.h"

namespace CLI {
class App;
}

struct Options {
    std::string address;
    std::string interface;
    std::optional<double> duration_s;  // nullopt: no end
    double clock_tolerance_s = 60;
    bool json = false;
    bool check = false;
    std::vector<AcceptedFault> accepted;
    std::vector<std::string> expected;  // files and directories of tables
    bool any_version = false;           // of these tables may be on air
    std::string metrics;                // files to write; empty: none
    std::string plot;
    std::string record;
};

// Adds the options to `app`, which then writes them to `options`.
void add_options(CLI::App& app, Options& options);

#endif
