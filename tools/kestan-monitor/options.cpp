#include "tools/kestan-monitor/options.h"

#include <CLI/CLI.hpp>

#include "tools/kestan-monitor/accepted_faults.h"
#include "tools/service/program.h"

namespace {

constexpr double kGreatestToleranceS = 1e8;

constexpr const char* kFooter =
    "The report is shown when the duration is over, or on SIGINT or SIGTERM. On a "
    "terminal\n"
    "it is refreshed once a second until then: arrows, Page keys, j and k scroll, q "
    "ends.\n\n"
    "Exit status: 0; 1 when --check finds something outside the limits or nothing was\n"
    "received; 2 when it cannot receive, cannot read or write a file, or the command "
    "line is wrong.";

void add_expectations(CLI::App& app, Options& options) {
    CLI::Option* const expected =
        app.add_option("--expect", options.expected,
                       "JSON file of tables, directory of those, or -: check that these "
                       "tables are on air, and no others; SIGHUP reads them again, "
                       "but ends the run on a terminal. "
                       "Repeatable");
    expected->allow_extra_args(false)->option_text("PATH")->check([](auto& path) {
        return path.empty() ? std::string("an empty path") : std::string();
    });
    app.add_flag("--any-version", options.any_version,
                 "Do not compare the version_numbers of these tables")
        ->needs(expected);
    app.add_option_function<std::vector<std::string>>(
           "--accept",
           [&options](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) {
                   const auto faults = accepted_faults(text);
                   options.accepted.insert(options.accepted.end(), faults.begin(),
                                           faults.end());
               }
           },
           "CHECK or CHECK:PID, a known fault that --check does not count: a check of "
           "kestan-monitor(1), or a rule that --json names. Repeatable")
        ->allow_extra_args(false)
        ->option_text("CHECK[:PID]");
}

}  // namespace

void add_options(CLI::App& app, Options& options) {
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("kestan-monitor " KESTAN_VERSION));
    app.add_option("ADDRESS:PORT", options.address,
                   "Address of this machine or multicast group, such as 226.0.0.10:1234")
        ->required();
    app.add_option("-i,--interface", options.interface,
                   "Network interface through which the stream comes in");
    add_duration(app, options.duration_s, "Seconds to measure (default: no end)");
    app.add_flag("--json", options.json, "Report in JSON, at the end");
    app.add_flag("--check", options.check,
                 "Exit status 1 for a stream outside the limits");
    add_expectations(app, options);
    app.add_option("--clock-tolerance", options.clock_tolerance_s,
                   "Seconds that the TDT may differ from this host's clock, if that one "
                   "is synchronised; 0: any (default: 60)")
        ->check(CLI::Range(0.0, kGreatestToleranceS));
    app.add_option("--metrics", options.metrics,
                   "File to write Prometheus's text format to, once a second");
    app.add_option("--plot", options.plot,
                   "SVG file to draw the intervals and the bit rate in, at the end");
    app.add_option("--record", options.record,
                   "File to write the transport packets to, as they come");
}
