#ifndef KESTAN_TOOLS_KESTAN_MONITOR_PID_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_PID_RECORD_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "tools/kestan-monitor/table_record.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/section_collector.h"

// What has come on one PID.
struct PidRecord {
    explicit PidRecord(std::uint16_t pid) : number(pid) {}

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, number}; }

    std::uint16_t number;
    std::uint64_t packets = 0;
    std::map<TableKey, TableRecord> tables;

    // Tables have to be here: a PID of one use, or one that the PAT announces for a PMT.
    bool has_to_carry_tables = false;

    ContinuityCheck continuity;
    std::unique_ptr<SectionCollector> collector;  // null if it carries no tables
    std::int64_t section_start = 0;               // of the section being collected

    // Since when it has carried PMTs though the PAT does not announce it.
    std::optional<std::int64_t> unannounced_since;
};

#endif
