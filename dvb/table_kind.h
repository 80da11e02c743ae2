#ifndef KESTAN_DVB_TABLE_KIND_H
#define KESTAN_DVB_TABLE_KIND_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "dvb/nanoseconds.h"

// The tables that Kestan plays and that its tools know, with what holds for each of them.

enum class TableKind : std::uint8_t { kPat, kCat, kSdt, kPmt, kTdt };

struct TableInfo {
    const char* key;        // in the JSON of a multiplex; null if it is not part of one
    const char* name;       // for programs and in columns
    const char* full_name;  // for people; the number of its service follows a PMT's
    std::optional<std::uint16_t> pid;  // nullopt if the PAT gives it
    std::uint8_t table_id;
    std::size_t header_size;        // of a section: the bytes before its entries
    std::size_t entry_header_size;  // of an entry: the bytes before its descriptors

    // table_ids of other tables that the PID may carry, a byte each, and the clause that
    // allows no more.
    std::string_view other_table_ids;
    const char* table_id_clause;

    const char* scrambled_clause;  // wants the sections without scrambling
    std::int64_t period_ns;        // Kestan plays the whole table once in it

    // The longest time that is allowed between two sections of one number, and the clause
    // that says so.
    std::optional<std::int64_t> repetition_limit_ns;
    const char* repetition_clause;

    bool has_gap_limit;  // kLeastSectionGapNs holds for its sections
};

// The least time from the last byte of one section of an SI table to the first byte of
// the next, in streams below 100 Mbit/s (ETSI EN 300 468, 5.1.4).
constexpr std::int64_t kLeastSectionGapNs = 25 * kNsPerMs;

// In the order of TableKind. PIDs: ISO/IEC 13818-1, table 2-3, and ETSI EN 300 468, table
// 1. table_ids: ISO/IEC 13818-1, table 2-31, and ETSI EN 300 468, table 2. Headers:
// ISO/IEC 13818-1, 2.4.4, and ETSI EN 300 468, 5.2. The periods are Kestan's choice.
// clang-format off
constexpr std::array<TableInfo, 5> kTables{{
    {"pat", "PAT", "PAT", 0x0000, 0x00, 8, 4,
     "", "ETSI TR 101 290, 1.3.a", "ETSI TR 101 290, 1.3.a",
     200 * kNsPerMs, 500 * kNsPerMs, "ETSI TR 101 290, 1.3.a", false},
    {"cat", "CAT", "CAT", 0x0001, 0x01, 8, 0,
     "", "ETSI TR 101 290, 2.6", "ISO/IEC 13818-1, 2.4.4",
     500 * kNsPerMs, std::nullopt, "", false},
    // The SDTs of other streams, the BAT and the ST share its PID.
    {"sdt", "SDT", "SDT actual", 0x0011, 0x42, 11, 5,
     "\x46\x4A\x72", "ETSI TR 101 290, 3.5", "ETSI EN 300 468, 5.1.1",
     500 * kNsPerMs, 2 * kNsPerSecond, "ETSI TR 101 211, 4.4", true},
    {"pmts", "PMT", "PMT of service", std::nullopt, 0x02, 12, 5,
     "", "", "ETSI TR 101 290, 1.5.a",
     200 * kNsPerMs, 500 * kNsPerMs, "ETSI TR 101 290, 1.5.a", false},
    // The ST and the TOT share its PID.
    {nullptr, "TDT", "TDT", 0x0014, 0x70, 3, 0,
     "\x72\x73", "ETSI TR 101 290, 3.8", "ETSI EN 300 468, 5.1.1",
     kNsPerSecond, 30 * kNsPerSecond, "ETSI TR 101 211, 4.4", true},
}};
// clang-format on

[[nodiscard]] constexpr const TableInfo& table_info(TableKind kind) {
    return kTables[static_cast<std::size_t>(kind)];
}

constexpr std::uint16_t kPatPid = *table_info(TableKind::kPat).pid;
constexpr std::uint16_t kCatPid = *table_info(TableKind::kCat).pid;
constexpr std::uint16_t kSdtPid = *table_info(TableKind::kSdt).pid;
constexpr std::uint16_t kTdtPid = *table_info(TableKind::kTdt).pid;

constexpr std::uint8_t kPatTableId = table_info(TableKind::kPat).table_id;
constexpr std::uint8_t kCatTableId = table_info(TableKind::kCat).table_id;
constexpr std::uint8_t kSdtActualTableId = table_info(TableKind::kSdt).table_id;
constexpr std::uint8_t kPmtTableId = table_info(TableKind::kPmt).table_id;
constexpr std::uint8_t kTdtTableId = table_info(TableKind::kTdt).table_id;

constexpr std::uint16_t kNitPid = 0x0010;  // of the NIT, which other programs put in

// Returns the table that has this PID for itself or shares it with tables that are not
// known here. Returns null if the PID has no such use.
[[nodiscard]] constexpr const TableInfo* table_on(std::uint16_t pid) {
    for (const TableInfo& table : kTables) {
        if (table.pid == pid) return &table;
    }
    return nullptr;
}

#endif
