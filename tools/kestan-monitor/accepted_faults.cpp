#include "tools/kestan-monitor/accepted_faults.h"

#include <set>
#include <stdexcept>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/rules/rules.h"

namespace {

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

std::string list(const std::set<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace

std::vector<AcceptedFault> accepted_faults(const std::string& text) {
    const std::size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    AcceptedFault accepted{};
    if (colon != std::string::npos) accepted.pid = pid_of(text.substr(colon + 1));
    std::vector<AcceptedFault> found;
    std::set<std::string> checks;
    std::set<std::string> rules;
    const auto offer = [&](FaultKind kind, std::string_view rule, std::string_view its) {
        accepted.kind = kind;
        accepted.rule = rule;
        (rule.empty() ? checks : rules).emplace(its);
        if (name == its) found.push_back(accepted);
    };
    for (std::size_t i = 0; i < kFaultKinds; ++i) {
        const auto kind = static_cast<FaultKind>(i);
        if (kind != FaultKind::kConsistency) offer(kind, "", check_name(kind));
    }
    for (const Rule& rule : all_rules()) {
        if (is_for_streams(rule)) offer(FaultKind::kConsistency, rule.name, rule.name);
    }
    if (!found.empty()) return found;
    const bool is_all_rules = name == check_name(FaultKind::kConsistency);
    throw std::invalid_argument(
        is_all_rules ? "--accept: consistency has many rules, name one: " + list(rules)
                     : "--accept: \"" + name + "\" is no check: expected one of " +
                           list(checks) + ", or a rule of consistency: " + list(rules));
}
