#ifndef KESTAN_TOOLS_KESTAN_MONITOR_STREAM_FIGURES_H
#define KESTAN_TOOLS_KESTAN_MONITOR_STREAM_FIGURES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-monitor/repetition.h"
#include "tools/kestan-monitor/spread.h"

// What a StreamStatistics has found, at one moment. Durations are nanoseconds, rates
// bit/s of whole transport packets, without the headers of UDP and IP.

enum class TableKind : std::uint8_t { pat, cat, sdt, pmt, tdt };

struct TableFigures {
    TableKind kind = TableKind::pat;
    std::uint16_t service_id = 0;  // of a PMT
    bool in_pat = false;           // a PMT that the PAT announces, now
    std::uint64_t sections = 0;    // whole and right; those in force, not the next ones
    std::optional<std::uint8_t> version;
    // Sections whose content is not that of the last one with their number and version.
    std::uint64_t unversioned_changes = 0;

    std::string utc;  // of a TDT: its last time, "2026-06-15 12:45:00"
    Repetition::Figures repetition;

    // From the last byte of each section to the first of the table's next one.
    Spread section_gaps;
};

struct PidFigures {
    std::uint16_t pid = 0;
    std::uint64_t packets = 0;
    double bit_rate = 0;
    std::uint64_t continuity_errors = 0;
    std::uint64_t crc_errors = 0;
    std::uint64_t wrong_table_ids = 0;  // sections that the PID must not carry
    std::vector<TableFigures> tables;
};

struct StreamFigures {
    std::int64_t duration = 0;  // from the first datagram on
    std::uint64_t datagrams = 0;
    std::uint64_t malformed_datagrams = 0;  // not whole transport packets; passed over
    std::uint64_t lost_datagrams = 0;  // come to this machine, but not to the monitor
    std::uint64_t packets = 0;
    Spread packets_per_datagram;
    double bit_rate = 0;
    double peak_bit_rate = 0;  // the greatest over kPeakWindowNs
    Spread jitter;             // of all tables; see Repetition::Figures
    std::vector<PidFigures> pids;
};

#endif
