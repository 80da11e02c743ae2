#include "tools/kestan-insert/options.h"

#include <CLI/CLI.hpp>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/service/program.h"

namespace {

constexpr int kMaxTtl = 255;

constexpr const char* kFooter =
    "It ends with a report when the duration or standard input is over, or on SIGINT or\n"
    "SIGTERM. On a terminal it writes a line a second until then.\n\n"
    "Exit status: 0; 1 when a packet of TABLES was dropped or lost, or a stream never\n"
    "came; 2 when it cannot receive or write, or the command line is wrong.";

// Accepts a PID as people write it: 20 or 0x0014.
std::string check_pid(std::string& text) {
    const auto pid = parse_argument(text);
    if (!pid || *pid >= kNullPid)
        return text + " is not a PID of 0 to 0x1FFE, such as 256 or 0x0100";
    text = std::to_string(*pid);
    return "";
}

}  // namespace

void add_options(CLI::App& app, Options& options) {
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("kestan-insert " KESTAN_VERSION));
    app.add_option("INPUT", options.input,
                   "The encoder's stream: ADDRESS:PORT of this machine or of a multicast "
                   "group, or - for standard input")
        ->required();
    app.add_option("TABLES", options.tables, "Kestan's stream: ADDRESS:PORT")->required();
    app.add_option("OUTPUT", options.output,
                   "Where the stream with the tables goes: ADDRESS:PORT, or - for "
                   "standard output")
        ->required();
    app.add_option("--input-interface", options.input_interface,
                   "Network interface through which INPUT comes in");
    app.add_option("--tables-interface", options.tables_interface,
                   "Network interface through which TABLES comes in");
    app.add_option("--output-interface", options.output_interface,
                   "Network interface through which OUTPUT leaves");
    app.add_option("--ttl", options.ttl, "Time to live of OUTPUT (default: 1)")
        ->check(CLI::Range(1, kMaxTtl));
    add_duration(app, options.duration_s, "Seconds to run (default: no end)");
    app.add_flag("--json", options.json, "Report in JSON, at the end");
    app.add_option("--keep", options.kept,
                   "PID on which INPUT's packets pass and Kestan's are dropped; can be "
                   "given several times")
        ->transform(CLI::Validator(check_pid, "PID"))
        ->allow_extra_args(false);
}
