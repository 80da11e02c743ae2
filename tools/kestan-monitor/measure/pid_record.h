#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PID_RECORD_H

#include <cstdint>
#include <map>
#include <optional>

#include "tools/kestan-monitor/measure/table_record.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/section_assembler.h"

// The record of one PID: the figures of what came on it, and what it takes to follow its
// packets.
struct PidRecord {
    explicit PidRecord(std::uint16_t pid) : number(pid) {}

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, number}; }

    std::uint16_t number;
    std::uint64_t packets = 0;
    std::optional<std::int64_t> last_pcr;  // when, on the steady clock
    std::map<TableKey, TableRecord> tables;

    ContinuityCheck continuity;
    std::optional<SectionAssembler> assembler;  // no value: it carries no tables

    // Whether only tables belong here: the PID has a fixed use, or the PAT announces a
    // PMT on it.
    bool has_to_carry_tables = false;

    // The time since which it has carried PMTs without an announcement in the PAT.
    std::optional<std::int64_t> unannounced_since;
};

using PidRecords = std::map<std::uint16_t, PidRecord>;  // by PID

#endif
