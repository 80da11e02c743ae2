#include "tools/kestan-monitor/options.h"

#include <set>
#include <stdexcept>

#include <CLI/CLI.hpp>
#include <boost/algorithm/string/join.hpp>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/rules/rules.h"
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

std::uint16_t pid_of(const std::string& text) {
    const auto pid = parse_argument(text);
    if (pid && *pid <= kMaxPid) return static_cast<std::uint16_t>(*pid);
    throw std::invalid_argument("--accept: \"" + text +
                                "\" is not a PID: expected 0 to " +
                                std::to_string(kMaxPid) + ", decimal or as in 0x0100");
}

// Returns whether the check `consistency` reports what breaks the rule.
bool is_for_streams(const Rule& rule) {
    return rule.scope == RuleScope::kAllTables && rule.severity != Severity::kInformation;
}

// Appends the faults that the user calls "CHECK" or "CHECK:PID", where CHECK is a check
// or a rule of the check `consistency`. Throws std::invalid_argument, with a message for
// the user, if there are none: `consistency` itself would accept what nobody knows yet.
void add_accepted(const std::string& text, std::vector<AcceptedFault>& to) {
    const std::size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    AcceptedFault accepted{};
    if (colon != std::string::npos) accepted.pid = pid_of(text.substr(colon + 1));
    const std::size_t before = to.size();
    std::set<std::string> checks;
    std::set<std::string> rules;
    const auto offer = [&](FaultKind kind, std::string_view rule, std::string_view its) {
        accepted.kind = kind;
        accepted.rule = rule;
        (rule.empty() ? checks : rules).emplace(its);
        if (name == its) to.push_back(accepted);
    };
    for (std::size_t i = 0; i < kFaultKinds; ++i) {
        const auto kind = static_cast<FaultKind>(i);
        if (kind != FaultKind::kConsistency) offer(kind, "", check_name(kind));
    }
    for (const Rule& rule : all_rules()) {
        if (is_for_streams(rule)) offer(FaultKind::kConsistency, rule.name, rule.name);
    }
    if (to.size() > before) return;
    const std::string rule_names = boost::algorithm::join(rules, ", ");
    if (name == check_name(FaultKind::kConsistency))
        throw std::invalid_argument("--accept: consistency has many rules, name one: " +
                                    rule_names);
    throw std::invalid_argument("--accept: \"" + name +
                                "\" is no check: expected one of " +
                                boost::algorithm::join(checks, ", ") +
                                ", or a rule of consistency: " + rule_names);
}

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
               for (const std::string& text : texts) add_accepted(text, options.accepted);
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
