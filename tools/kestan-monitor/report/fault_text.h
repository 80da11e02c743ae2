#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_FAULT_TEXT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_FAULT_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/kestan-monitor/measure/fault.h"

// Faults and tables in words.

// Returns "PAT", "SDT actual", "PMT of service 4", …
[[nodiscard]] std::string table_name(const TableKey& table);

// Returns the name for programs, such as "continuity". An absence is a "repetition".
[[nodiscard]] const char* check_name(FaultKind kind);

// Returns the clause that the fault breaks, or "" if there is none.
[[nodiscard]] std::string_view clause(const Fault& fault);

// Returns one line for people: the place, the fault, and `value` with its limit unless
// `value` is 0.
[[nodiscard]] std::string describe(const Fault& fault, std::int64_t value);

#endif
