#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_RECORD_H

#include <cstdint>
#include <optional>

#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/repetition.h"
#include "tools/receive/section_set.h"

// The record of one table: its sections, their intervals and their faults.
//
// It keeps the sections of the version that came last. Times are nanoseconds of the
// steady clock. Faults go to the log, which must live longer. One thread.
class TableRecord {
public:
    TableRecord(std::uint16_t pid, const TableKey& key, FaultLog& faults)
        : pid_(pid), key_(key), faults_(faults), repetition_(pid, key, faults) {}
    TableRecord(const TableRecord&) = delete;
    TableRecord& operator=(const TableRecord&) = delete;

    void expect(std::int64_t now) { repetition_.expect(now); }
    void withdraw(std::int64_t now) { repetition_.withdraw(now); }
    void advance(std::int64_t now) { repetition_.advance(now); }

    struct Arrival {
        bool is_changed = false;               // the section was not there before
        std::optional<std::int64_t> interval;  // since the one with its number
    };

    // Takes a section whose first byte came at `start` and whose last byte at `end`.
    // REQUIRES: it is valid and in force.
    Arrival add(const Section& section, std::int64_t start, std::int64_t end);

    [[nodiscard]] std::uint64_t sections() const { return sections_; }
    [[nodiscard]] std::optional<std::uint8_t> version() const {
        return contents_.version();
    }
    [[nodiscard]] const Repetition& repetition() const { return repetition_; }

    // Returns when the last section was whole; nullopt if none has come.
    [[nodiscard]] std::optional<std::int64_t> last_section() const { return last_end_; }

    // Returns whether the PAT announces the PMT at present. REQUIRES: the table is a PMT.
    [[nodiscard]] bool is_announced() const { return repetition_.expected(); }

    // Returns the last time of a TDT in seconds since 1970.
    [[nodiscard]] std::optional<std::int64_t> utc() const { return utc_; }

    // Returns the sections of the last version; none of a TDT.
    [[nodiscard]] const SectionSet& contents() const { return contents_; }
    [[nodiscard]] bool is_complete() const { return contents_.is_complete(); }

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, pid_, key_}; }

private:
    void check_gap(std::int64_t start, std::int64_t end);

    std::uint16_t pid_;
    TableKey key_;
    FaultLog& faults_;
    Repetition repetition_;
    std::uint64_t sections_ = 0;
    SectionSet contents_;
    std::optional<std::int64_t> utc_;
    std::optional<std::int64_t> last_end_;  // of a section
};

#endif
