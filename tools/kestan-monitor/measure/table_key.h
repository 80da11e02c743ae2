#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_KEY_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_KEY_H

#include <cstdint>
#include <tuple>

#include "dvb/table_kind.h"

// A table of a stream.
struct TableKey {
    TableKind kind = TableKind::kPat;
    std::uint16_t service_id = 0;  // of a PMT

    bool operator==(const TableKey& other) const {
        return kind == other.kind && service_id == other.service_id;
    }
    bool operator<(const TableKey& other) const {
        return std::tie(kind, service_id) < std::tie(other.kind, other.service_id);
    }
};

#endif
