#ifndef KESTAN_TOOLS_RULES_RULES_H
#define KESTAN_TOOLS_RULES_RULES_H

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "tools/model/multiplex.h"
#include "tools/model/severity.h"
#include "tools/rules/finding.h"
#include "tools/rules/table_index.h"

class RuleReport;

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
    void (*check)(const TableIndex& tables, const RuleReport& report);
    RuleScope scope = RuleScope::kAllTables;
};

// Collects the findings of one rule. The rule and `findings` must outlive it.
class RuleReport {
public:
    RuleReport(const Rule& rule, std::vector<Finding>& findings)
        : rule_(rule), findings_(findings) {}

    // Takes a place that breaks the rule. The text, in the format of fmt::format, is what
    // is wrong, and what a receiver does with it.
    template <typename... Args>
    void operator()(const FieldPlace& place, std::string_view format,
                    const Args&... args) const {
        findings_.push_back({rule_.severity, rule_.name, rule_.clause, place.table,
                             place.field,
                             fmt::vformat(format, fmt::make_format_args(args...))});
    }

private:
    const Rule& rule_;
    std::vector<Finding>& findings_;
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
