#ifndef KESTAN_TOOLS_RECEIVE_TABLE_IMPORT_H
#define KESTAN_TOOLS_RECEIVE_TABLE_IMPORT_H

#include <cstdint>
#include <string>

#include "tools/model/multiplex.h"

// The result of an import: the tables of a file, and counts of what the file consists of.
//
// The file is a transport stream (see ts_file.h), or binary sections back to back as
// table compilers write them. It has sections if it begins with a long one (ISO/IEC
// 13818-1, 2.4.4.11) whose CRC_32 is valid.
struct TableImport {
    Multiplex tables;
    std::uint64_t packets = 0;   // of a transport stream
    std::uint64_t sections = 0;  // of a file of sections; a wrong CRC_32 excludes one
    std::uint64_t homeless_pmts = 0;  // sections of PMTs whose service is not in the PAT
    std::uint64_t stray_bytes = 0;    // that belong to no packet and no section
    bool is_cut = false;  // the file ends in the middle of a packet or section
};

// Reads the file; "-" is standard input. Raises std::system_error if it cannot be read.
[[nodiscard]] TableImport import_tables(const std::string& path);

#endif
