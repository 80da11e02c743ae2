#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_TYPE_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_TYPE_H

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "dvb/nanoseconds.h"

// The tables that the monitor follows, their names and their limits.

enum class TableType : std::uint8_t { pat, cat, sdt, pmt, tdt };

struct TableKey {
    TableType type = TableType::pat;
    std::uint16_t service_id = 0;  // of a PMT

    bool operator<(const TableKey& other) const {
        return std::tie(type, service_id) < std::tie(other.type, other.service_id);
    }
};

// The least time between two sections of one SI table, in streams below 100 Mbit/s (ETSI
// EN 300 468, 5.1.4).
constexpr std::int64_t kLeastSectionGapNs = 25 * kNsPerMs;
[[nodiscard]] bool has_section_gaps(TableType type);

// Returns the longest interval that is allowed between two sections of one number, in
// nanoseconds, or nullopt for a CAT.
[[nodiscard]] std::optional<std::int64_t> repetition_limit(TableType type);

// Returns the clause that the limit is from.
[[nodiscard]] const char* repetition_clause(TableType type);

// Returns "PAT", "SDT", "PMT", …
[[nodiscard]] const char* short_name(TableType type);

// Returns "PAT", "SDT actual", "PMT of service 4", …
[[nodiscard]] std::string table_name(const TableKey& table);

#endif
