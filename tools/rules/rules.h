#ifndef KESTAN_TOOLS_RULES_RULES_H
#define KESTAN_TOOLS_RULES_RULES_H

#include <vector>

#include "tools/model/multiplex.h"
#include "tools/rules/finding.h"
#include "tools/rules/rule.h"

// Returns all rules, errors first. No two have the same name.
[[nodiscard]] const std::vector<Rule>& all_rules();

// Returns each place where the tables of a stream break a rule, in the order of the
// rules. Any table may be missing: a rule that needs a missing table reports nothing,
// unless it is the rule about its absence. Any thread may call it.
[[nodiscard]] std::vector<Finding> check_tables(const Multiplex& multiplex);

// As check_tables, for tables that Kestan is to send: with the rules for files alone.
[[nodiscard]] std::vector<Finding> check_file_tables(const Multiplex& multiplex);

[[nodiscard]] bool has_errors(const std::vector<Finding>& findings);

#endif
