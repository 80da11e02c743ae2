#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_KEY_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_KEY_H

#include <cstdint>
#include <string>
#include <tuple>

#include "dvb/table_kind.h"

// A table of a stream.
struct TableKey {
    TableKind kind = TableKind::kPat;
    std::uint16_t service_id = 0;  // of a PMT

    bool operator<(const TableKey& other) const {
        return std::tie(kind, service_id) < std::tie(other.kind, other.service_id);
    }
};

// Returns "PAT", "SDT actual", "PMT of service 4", …
[[nodiscard]] inline std::string table_name(const TableKey& table) {
    const std::string name = table_info(table.kind).full_name;
    if (table.kind != TableKind::kPmt) return name;
    return name + ' ' + std::to_string(table.service_id);
}

#endif
