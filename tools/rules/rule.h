#ifndef KESTAN_TOOLS_RULES_RULE_H
#define KESTAN_TOOLS_RULES_RULE_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/rules/finding.h"
#include "tools/rules/table_index.h"

// Collects the findings of one rule.
class RuleReport {
public:
    // Appends to `findings` copies of `pattern`, which has the rule's severity, name and
    // clause. `findings` must outlive the report.
    RuleReport(Finding pattern, std::vector<Finding>& findings)
        : pattern_(std::move(pattern)), findings_(findings) {}

    void add(TablePlace table, std::string field, std::string text) {
        Finding& finding = findings_.emplace_back(pattern_);
        finding.table = table;
        finding.field = std::move(field);
        finding.text = std::move(text);
    }

private:
    Finding pattern_;
    std::vector<Finding>& findings_;
};

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
    void (*check)(const TableIndex& tables, RuleReport& report);
    RuleScope scope = RuleScope::kAllTables;
};

// Each file of rules gives the list of its own.
[[nodiscard]] std::vector<Rule> service_rules();  // which table has which service
[[nodiscard]] std::vector<Rule> pid_rules();      // which PID carries what
[[nodiscard]] std::vector<Rule> table_rules();    // a table by itself
[[nodiscard]] std::vector<Rule> ca_rules();       // conditional access

#endif
