#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "tools/kestan-monitor/measure/table_record.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/section_assembler.h"

// The record of one PID: what came on it.
struct PidRecord {
    explicit PidRecord(std::uint16_t pid) : number(pid) {}

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, number}; }

    std::uint16_t number;
    std::uint64_t packets = 0;
    std::map<TableKey, TableRecord> tables;

    // Whether only tables belong here: the PID has a fixed use, or the PAT announces a
    // PMT on it.
    bool has_to_carry_tables = false;

    ContinuityCheck continuity;
    std::unique_ptr<SectionAssembler> assembler;  // null if it carries no tables

    // The time since which the PID has carried PMTs without an announcement in the PAT.
    std::optional<std::int64_t> unannounced_since;
};

#endif
