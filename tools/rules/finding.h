#ifndef KESTAN_TOOLS_RULES_FINDING_H
#define KESTAN_TOOLS_RULES_FINDING_H

#include <string>
#include <string_view>

#include "tools/model/multiplex.h"
#include "tools/model/severity.h"

// One place where the tables of a multiplex break a rule.
struct Finding {
    Severity severity = Severity::kError;
    std::string_view rule;    // its name, for programs: "pmt_on_reserved_pid"
    std::string_view clause;  // of the standard: "ISO/IEC 13818-1, table 2-3"
    TablePlace table;
    std::string field;  // in the table: "streams[1].elementary_pid"; empty for the table
    std::string text;   // what is wrong, and what a receiver does with it
};

// Returns the place in the JSON of a multiplex: "pmts[2].streams[1].elementary_pid".
[[nodiscard]] inline std::string place_of(const Finding& finding) {
    std::string place = table_info(finding.table.kind).key;
    if (finding.table.kind == TableKind::kPmt)
        place += '[' + std::to_string(finding.table.pmt) + ']';
    return finding.field.empty() ? place : place + '.' + finding.field;
}

#endif
