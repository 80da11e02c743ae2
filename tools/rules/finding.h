#ifndef KESTAN_TOOLS_RULES_FINDING_H
#define KESTAN_TOOLS_RULES_FINDING_H

#include <cstddef>
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
// `pmt` is the index to write for a PMT, which differs from the finding's if the tables
// are from several files.
[[nodiscard]] std::string place_of(const Finding& finding, std::size_t pmt);
[[nodiscard]] std::string place_of(const Finding& finding);

#endif
