#ifndef KESTAN_TOOLS_KESTAN_MONITOR_EXPECTED_TABLES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_EXPECTED_TABLES_H

#include <optional>
#include <string>
#include <vector>

#include "tools/json/text_file.h"
#include "tools/model/multiplex.h"

// Reads the tables of files and directories, as kestan-control reads them. Writes
// their mistakes to standard error, or else their doubts. Returns nullopt if there is a
// mistake.
[[nodiscard]] std::optional<Multiplex> read_expected_tables(
    const std::vector<std::string>& paths, FileKind kind);

#endif
