#ifndef KESTAN_TOOLS_KESTAN_MONITOR_STREAM_LIMITS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_STREAM_LIMITS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-monitor/stream_figures.h"

// What DVB asks of a stream's tables, and what a stream misses of it.

// The longest interval between two sections of one number, in nanoseconds; none for a
// CAT.
[[nodiscard]] std::optional<std::int64_t> repetition_limit(TableKind kind);

// "PAT", "PMT of service 4", …
[[nodiscard]] std::string table_name(const TableFigures& table);

struct Violation {
    // "reception", "malformed", "lost", "continuity", "crc", "table_id", "repetition",
    // "version" or "section_gap": for programs.
    std::string check;
    std::string text;  // one line, for people
};

// Everything in which `figures` is outside the limits; empty for a stream in order.
[[nodiscard]] std::vector<Violation> find_violations(const StreamFigures& figures);

#endif
