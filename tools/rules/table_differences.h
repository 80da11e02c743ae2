#ifndef KESTAN_TOOLS_RULES_TABLE_DIFFERENCES_H
#define KESTAN_TOOLS_RULES_TABLE_DIFFERENCES_H

#include <cstdint>
#include <string>
#include <vector>

#include "dvb/table_kind.h"
#include "tools/model/multiplex.h"

// Differences between the tables of a stream and those of files.

enum class DifferenceKind : std::uint8_t {
    kMissing,  // the stream does not have the table
    kForeign,  // the files do not have it
    kPid,
    kVersion,
    kContent,  // any other field
};

struct TableDifference {
    TableKind table = TableKind::kPat;
    std::uint16_t service_id = 0;  // of a PMT
    std::uint16_t pid = 0;  // in the stream, or in the files if it is missing there
    DifferenceKind kind = DifferenceKind::kMissing;
    std::string text = {};  // follows the table's name: "is version 3, the files have 4"
};

// Returns the differences, at most one of a kind for each table of the stream. That of
// the content is the first field that differs, by its path in the table's JSON.
//
// The stream may have several PMTs of a service: each one is compared. `stream` has only
// tables in force, so a table of the files that is not in force is not missed. A version
// above 31 is 0 on air.
[[nodiscard]] std::vector<TableDifference> table_differences(const Multiplex& stream,
                                                             const Multiplex& files,
                                                             bool compares_versions);

#endif
