#include "tools/rules/rules.h"

#include <algorithm>

namespace {

std::vector<Rule> sorted_rules() {
    std::vector<Rule> rules;
    for (const auto& list : {service_rules, pid_rules, table_rules, ca_rules}) {
        for (const Rule& rule : list()) rules.push_back(rule);
    }
    std::stable_sort(rules.begin(), rules.end(), [](const Rule& one, const Rule& other) {
        return one.severity < other.severity;
    });
    return rules;
}

// Checks with the rules for all tables, and with those of `scope`.
std::vector<Finding> check_by(RuleScope scope, const Multiplex& multiplex) {
    const TableIndex tables(multiplex);
    std::vector<Finding> findings;
    for (const Rule& rule : all_rules()) {
        if (rule.scope != RuleScope::kAllTables && rule.scope != scope) continue;
        Finding pattern;
        pattern.severity = rule.severity;
        pattern.rule = rule.name;
        pattern.clause = rule.clause;
        RuleReport report(pattern, findings);
        rule.check(tables, report);
    }
    return findings;
}

}  // namespace

const std::vector<Rule>& all_rules() {
    static const std::vector<Rule> rules = sorted_rules();
    return rules;
}

std::vector<Finding> check_tables(const Multiplex& multiplex) {
    return check_by(RuleScope::kAllTables, multiplex);
}

std::vector<Finding> check_file_tables(const Multiplex& multiplex) {
    return check_by(RuleScope::kFileTables, multiplex);
}

bool has_errors(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::kError;
    });
}
