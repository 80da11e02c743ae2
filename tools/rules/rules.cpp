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

}  // namespace

const std::vector<Rule>& all_rules() {
    static const std::vector<Rule> rules = sorted_rules();
    return rules;
}

std::vector<Finding> check_tables(const Multiplex& multiplex, RuleScope scope) {
    const TableIndex tables(multiplex);
    std::vector<Finding> findings;
    for (const Rule& rule : all_rules()) {
        if (rule.scope != RuleScope::kAllTables && rule.scope != scope) continue;
        rule.check(tables, RuleReport(rule, findings));
    }
    return findings;
}
