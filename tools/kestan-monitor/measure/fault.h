#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "tools/kestan-monitor/measure/table_key.h"

// The kinds of fault of a stream.
enum class FaultKind : std::uint8_t {
    reception,        // no datagram came in the whole run
    silence,          // no datagram for longer than the stream's tables may be away
    malformed,        // a datagram that is not made of whole transport packets
    coded_packets,    // a datagram of packets with a Reed-Solomon code
    lost,             // a datagram that came to this machine, but not to the monitor
    sync_byte,        // a packet without its sync byte
    transport_error,  // transport_error_indicator
    scrambled,        // transport_scrambling_control on a table's PID
    continuity,
    crc,
    table_id,         // a section that the PID must not carry
    absence,          // a table that has not come at all
    repetition,       // a section that stayed away for too long
    version,          // a section that changed, but not its version
    pat_alternates,   // between two transport_stream_ids or versions
    section_gap,      // two sections of an SI table too close to each other
    unannounced_pmt,  // on a PID that the PAT does not announce
    tdt_stands_still,
    tdt_goes_back,
    tdt_offset,   // from this host's clock
    consistency,  // tables that break a rule
};
constexpr std::size_t kFaultKinds = 21;

// A fault and its place. Durations and differences are nanoseconds.
struct Fault {
    FaultKind kind;
    std::optional<std::uint16_t> pid = std::nullopt;
    std::optional<TableKey> table = std::nullopt;

    // Only for `consistency`: the rule's name and clause, which live as long as the
    // program, and the text that says what contradicts what.
    std::string_view rule = {};
    std::string_view rule_clause = {};
    std::string detail = {};

    bool operator<(const Fault& other) const {
        return std::tie(kind, pid, table, rule, detail) <
               std::tie(other.kind, other.pid, other.table, other.rule, other.detail);
    }
};

// Returns the name for programs, such as "continuity". An absence is a "repetition".
[[nodiscard]] const char* check_name(FaultKind kind);

// Returns the clause that the fault breaks, or "" if there is none.
[[nodiscard]] std::string_view clause(const Fault& fault);

// Returns one line for people: the place, the fault, and `value` with its limit unless
// `value` is 0.
[[nodiscard]] std::string describe(const Fault& fault, std::int64_t value);

#endif
