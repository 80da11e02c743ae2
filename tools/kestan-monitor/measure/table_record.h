#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_RECORD_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TABLE_RECORD_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "dvb/libdvbpsi.h"
#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/repetition.h"
#include "tools/kestan-monitor/measure/table_key.h"

// The record of one table: its sections, their intervals and their faults.
//
// It keeps the sections of the version that came last. Times are nanoseconds of the
// steady clock. Faults go to the log, which must live longer. One thread.
class TableRecord {
public:
    TableRecord(std::uint16_t pid, const TableKey& key, FaultLog& faults);
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
    // REQUIRES: it is whole and in force, and its CRC_32 is right.
    Arrival add(const dvbpsi_psi_section_t& section, std::int64_t start,
                std::int64_t end);

    [[nodiscard]] std::uint64_t sections() const { return sections_; }
    [[nodiscard]] std::optional<std::uint8_t> version() const { return version_; }
    [[nodiscard]] const Repetition& repetition() const { return repetition_; }

    // Returns whether the PAT announces the PMT at present. REQUIRES: the table is a PMT.
    [[nodiscard]] bool is_announced() const { return repetition_.expected(); }

    // Returns the last time of a TDT in seconds since 1970.
    [[nodiscard]] std::optional<std::int64_t> utc() const { return utc_; }

    // Returns the bytes of each section, by section_number.
    [[nodiscard]] const std::map<std::uint8_t, std::string>& contents() const {
        return contents_;
    }

    // Returns whether all sections of the version have come.
    [[nodiscard]] bool is_complete() const {
        return sections_ > 0 && contents_.size() == std::size_t{last_number_} + 1;
    }

    [[nodiscard]] Fault fault(FaultKind kind) const { return {kind, pid_, key_}; }

private:
    void check_gap(std::int64_t start, std::int64_t end);
    bool keep(const dvbpsi_psi_section_t& section, std::int64_t now);

    std::uint16_t pid_;
    TableKey key_;
    FaultLog& faults_;
    Repetition repetition_;
    std::uint64_t sections_ = 0;
    std::optional<std::uint8_t> version_;
    std::uint8_t last_number_ = 0;
    std::map<std::uint8_t, std::string> contents_;
    std::optional<std::int64_t> utc_;
    std::optional<std::int64_t> last_end_;  // of a section
};

#endif
