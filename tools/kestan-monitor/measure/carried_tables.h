#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CARRIED_TABLES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CARRIED_TABLES_H

#include <cstdint>
#include <map>
#include <string>

#include "tools/kestan-monitor/measure/pid_record.h"
#include "tools/model/multiplex.h"

// Returns the last complete tables on `pids`. Leaves out PMTs that the PAT does not
// announce.
[[nodiscard]] Multiplex carried_tables(const PidRecords& pids);

// Returns the names in the service descriptors (ETSI EN 300 468, 6.2.33) of `tables`'
// SDT, by service_id, without control characters.
[[nodiscard]] std::map<std::uint16_t, std::string> service_names_in(
    const Multiplex& tables);

#endif
