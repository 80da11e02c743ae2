#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "dvb/table_kind.h"

// A table of a stream.
struct TableKey {
    TableKind kind = TableKind::kPat;
    std::uint16_t service_id = 0;  // of a PMT

    bool operator==(const TableKey& other) const {
        return kind == other.kind && service_id == other.service_id;
    }
    bool operator<(const TableKey& other) const {
        return std::tie(kind, service_id) < std::tie(other.kind, other.service_id);
    }
};

// The kinds of fault of a stream.
enum class FaultKind : std::uint8_t {
    kReception,       // no datagram came in the whole run
    kSilence,         // no datagram for longer than the stream's tables may be away
    kMalformed,       // a datagram that is not made of whole transport packets
    kCodedPackets,    // a datagram of packets with a Reed-Solomon code
    kLost,            // a datagram that came to this machine, but not to the monitor
    kNoSyncByte,      // a packet without its sync byte
    kTransportError,  // transport_error_indicator
    kScrambled,       // transport_scrambling_control on a table's PID
    kContinuity,
    kCrc,
    kTableId,         // a section that the PID must not carry
    kAbsence,         // a table that has not come at all
    kRepetition,      // a section that stayed away for too long
    kVersion,         // a section that changed, but not its version
    kPatAlternates,   // between two transport_stream_ids or versions
    kSectionGap,      // two sections of an SI table too close to each other
    kUnannouncedPmt,  // on a PID that the PAT does not announce
    kTdtStandsStill,
    kTdtGoesBack,
    kTdtOffset,    // from this host's clock
    kCatMissing,   // while streams are scrambled
    kRtpSequence,  // a datagram that is lost, repeated or swapped
    kConsistency,  // tables that break a rule
    kExpected,     // tables that differ from those of files
};
constexpr std::size_t kFaultKinds = static_cast<std::size_t>(FaultKind::kExpected) + 1;

// A fault and its place. Durations and differences are nanoseconds.
struct Fault {
    FaultKind kind;
    std::optional<std::uint16_t> pid = std::nullopt;
    std::optional<TableKey> table = std::nullopt;

    // Only for `consistency`: the rule's name and clause, which live as long as the
    // program.
    std::string_view rule = {};
    std::string_view rule_clause = {};

    // For `consistency` and `expected`: the text that says what differs from what.
    std::string detail = {};

    bool operator<(const Fault& other) const {
        return std::tie(kind, pid, table, rule, detail) <
               std::tie(other.kind, other.pid, other.table, other.rule, other.detail);
    }
};

// Faults that are known and are not counted as faults.
struct AcceptedFault {
    FaultKind kind;
    std::string_view rule = {};  // only its faults, unless it is empty
    std::optional<std::uint16_t> pid = std::nullopt;  // only those on it, if there is one

    [[nodiscard]] bool covers(const Fault& fault) const {
        return fault.kind == kind && (rule.empty() || fault.rule == rule) &&
               (!pid || fault.pid == pid);
    }
};

#endif
