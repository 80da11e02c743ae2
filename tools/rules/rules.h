#ifndef KESTAN_TOOLS_RULES_RULES_H
#define KESTAN_TOOLS_RULES_RULES_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/model/multiplex.h"
#include "tools/model/severity.h"
#include "tools/rules/finding.h"
#include "tools/rules/table_index.h"

// Takes a place that breaks a rule: what is wrong, and what a receiver does with it.
using Report = std::function<void(const FieldPlace& place, std::string text)>;

// Whose tables a rule is for.
enum class RuleScope {
    kAllTables,   // of files and of streams
    kFileTables,  // of files that Kestan is to send: in a foreign stream it is no fault
};

// A rule that the tables of a multiplex must keep.
struct Rule {
    std::string_view name;
    Severity severity;
    std::string_view clause;  // of the standard that asks for it
    // Reports each place that breaks the rule.
    void (*check)(const TableIndex& tables, const Report& report);
    RuleScope scope = RuleScope::kAllTables;
};

// Each file of rules gives the list of its own.
[[nodiscard]] std::vector<Rule> service_rules();  // which table has which service
[[nodiscard]] std::vector<Rule> pid_rules();      // which PID carries what
[[nodiscard]] std::vector<Rule> table_rules();    // a table by itself
[[nodiscard]] std::vector<Rule> ca_rules();       // conditional access

// Returns all rules, errors first. No two have the same name.
[[nodiscard]] const std::vector<Rule>& all_rules();

// Returns each place where the tables break a rule for all tables or for those of
// `scope`, in the order of the rules. Any table may be missing: a rule that needs a
// missing table reports nothing, unless it is the rule about its absence. Any thread may
// call it.
[[nodiscard]] std::vector<Finding> check_tables(const Multiplex& multiplex,
                                                RuleScope scope = RuleScope::kAllTables);

#endif
