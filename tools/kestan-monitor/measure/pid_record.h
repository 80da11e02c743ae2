#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H

#include <cstdint>
#include <map>
#include <optional>

#include "tools/kestan-monitor/measure/table_record.h"

// The record of one PID: the figures of what came on it.
struct PidRecord {
    explicit PidRecord(std::uint16_t pid) : number(pid) {}

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, number}; }

    std::uint16_t number;
    std::uint64_t packets = 0;
    std::optional<std::int64_t> last_pcr;  // when, on the steady clock
    std::map<TableKey, TableRecord> tables;
};

using PidRecords = std::map<std::uint16_t, PidRecord>;  // by PID

#endif
