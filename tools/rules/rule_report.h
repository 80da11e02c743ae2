#ifndef KESTAN_TOOLS_RULES_RULE_REPORT_H
#define KESTAN_TOOLS_RULES_RULE_REPORT_H

#include <string>
#include <utility>
#include <vector>

#include "tools/rules/finding.h"

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

#endif
