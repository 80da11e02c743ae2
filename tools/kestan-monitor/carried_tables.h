#ifndef KESTAN_TOOLS_KESTAN_MONITOR_CARRIED_TABLES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_CARRIED_TABLES_H

#include <cstdint>
#include <map>
#include <string>

#include "tools/kestan-monitor/pid_record.h"
#include "tools/multiplex.h"

// The PAT in force as `table` has it; nullopt if it is not complete.
[[nodiscard]] std::optional<orvel::thrift::dvb_tables::PAT> decode_pat(
    const TableRecord& table);

// The tables that came last on `pids`: those that are complete, and of the PMTs those
// that the PAT announces.
[[nodiscard]] Multiplex decode_tables(const std::map<std::uint16_t, PidRecord>& pids);

// The names in the service descriptors (ETSI EN 300 468, 6.2.33) of `tables`' SDT, by
// service_id. They have no control characters.
[[nodiscard]] std::map<std::uint16_t, std::string> service_names(const Multiplex& tables);

#endif
