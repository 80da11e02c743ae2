#include "tools/kestan-monitor/measure/table_type.h"

#include <array>

namespace {

struct Properties {
    const char* short_name;
    const char* name;
    std::int64_t limit;
    const char* clause;
};

constexpr std::array<Properties, 5> kProperties{{
    {"PAT", "PAT", 500 * kNsPerMs, "ETSI TR 101 290, 1.3.a"},
    {"CAT", "CAT", 0, ""},
    {"SDT", "SDT actual", 2 * kNsPerSecond, "ETSI TR 101 211, 4.4"},
    {"PMT", "PMT of service ", 500 * kNsPerMs, "ETSI TR 101 290, 1.5.a"},
    {"TDT", "TDT", 30 * kNsPerSecond, "ETSI TR 101 211, 4.4"},
}};

const Properties& properties(TableType type) {
    return kProperties.at(static_cast<std::size_t>(type));
}

}  // namespace

bool has_section_gaps(TableType type) {
    return type == TableType::sdt || type == TableType::tdt;
}

std::optional<std::int64_t> repetition_limit(TableType type) {
    if (type == TableType::cat) return std::nullopt;
    return properties(type).limit;
}

const char* repetition_clause(TableType type) {
    return properties(type).clause;
}

const char* short_name(TableType type) {
    return properties(type).short_name;
}

std::string table_name(const TableKey& table) {
    const std::string name = properties(table.type).name;
    return table.type == TableType::pmt ? name + std::to_string(table.service_id) : name;
}
