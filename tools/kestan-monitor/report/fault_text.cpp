#include "tools/kestan-monitor/report/fault_text.h"

#include <fmt/format.h>

#include <cstdlib>
#include <iterator>

#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

// Returns the tables of the fault's PID. A PID without a fixed use carries PMTs.
const TableInfo& tables_on(const Fault& fault) {
    const TableInfo* const info = fault.pid ? table_on(*fault.pid) : nullptr;
    return info == nullptr ? table_info(TableKind::kPmt) : *info;
}

struct Properties {
    const char* check;
    const char* text;    // "{}" is the duration
    const char* clause;  // null: clause() finds it
};

// In the order of FaultKind.
constexpr Properties kProperties[] = {
    {"reception", "no datagram has been received", ""},
    {"silence", "no datagram for {}", "ETSI TR 101 290, 1.1"},
    {"malformed", "datagrams that are not whole transport packets", ""},
    {"coded_packets", "datagrams of 204-byte packets, with a Reed-Solomon code",
     "ISO/IEC 13818-1, 2.4.3.2"},
    {"lost",
     "datagrams lost on this machine: the monitor was too slow or the socket buffer too "
     "small",
     ""},
    {"sync_byte", "packets without their sync byte", "ETSI TR 101 290, 1.2"},
    {"transport_error", "packets with transport_error_indicator", "ETSI TR 101 290, 2.1"},
    {"scrambled", "packets of tables with scrambling bits", nullptr},
    {"continuity", "continuity errors", "ETSI TR 101 290, 1.4"},
    {"crc", "sections with a wrong CRC_32", "ETSI TR 101 290, 2.2"},
    {"table_id", "sections with a table_id that this PID must not carry", nullptr},
    {"repetition", "none came for {}", nullptr},
    {"repetition", "a section was away for {}", nullptr},
    {"version", "sections that changed, but not their version", "ISO/IEC 13818-1, 2.4.4"},
    {"pat_alternates", "transport_stream_id or version_number alternates",
     "ISO/IEC 13818-1, 2.4.4.5"},
    {"section_gap", "a section came {} after another", "ETSI EN 300 468, 5.1.4"},
    {"unannounced_pmt", "the PAT does not announce this PID", "ETSI TR 101 290, 3.4"},
    {"tdt_stands_still", "the time stands still for {}", "ETSI EN 300 468, 5.2.5"},
    {"tdt_goes_back", "the time goes back by {}", "ETSI EN 300 468, 5.2.5"},
    {"tdt_offset", "the time is {} away from this host's clock",
     "ETSI EN 300 468, 5.2.5"},
    {"cat_missing", "streams are scrambled, and no CAT came for {}",
     "ETSI TR 101 290, 2.6"},
    {"rtp_sequence", "datagrams lost, repeated or swapped, as their RTP numbers show",
     "RFC 3550, 5.1"},
    {"consistency", "", nullptr},
    {"expected", "", ""},
};
static_assert(std::size(kProperties) == kFaultKinds);

const Properties& properties(FaultKind kind) {
    return kProperties[static_cast<std::size_t>(kind)];
}

std::string ms_text(std::int64_t ns) {
    return fmt::format("{:.1f} ms", to_ms(ns));
}

std::string place(const Fault& fault) {
    std::string text;
    if (fault.pid) text += "PID " + pid_text(*fault.pid) + ": ";
    if (!fault.table) return text;
    // The text of `expected` continues the table's name.
    const char* const end = fault.kind == FaultKind::kExpected ? " " : ": ";
    return text + table_name(*fault.table) + end;
}

// Returns a text such as ", at most 500.0 ms are allowed".
std::string limit(const Fault& fault) {
    if (fault.kind == FaultKind::kSectionGap)
        return ", at least " + ms_text(kLeastSectionGapNs) + " are required";
    const bool is_wait =
        fault.kind == FaultKind::kRepetition || fault.kind == FaultKind::kAbsence;
    if (!is_wait || !fault.table) return "";
    const auto longest = table_info(fault.table->kind).repetition_limit_ns;
    return longest ? ", at most " + ms_text(*longest) + " are allowed" : "";
}

}  // namespace

std::string table_name(const TableKey& table) {
    std::string name = table_info(table.kind).full_name;
    if (table.kind != TableKind::kPmt) return name;
    return name + ' ' + std::to_string(table.service_id);
}

const char* check_name(FaultKind kind) {
    return properties(kind).check;
}

std::string_view clause(const Fault& fault) {
    switch (fault.kind) {
        case FaultKind::kAbsence:
        case FaultKind::kRepetition:
            return fault.table ? table_info(fault.table->kind).repetition_clause : "";
        case FaultKind::kTableId:
            return tables_on(fault).table_id_clause;
        case FaultKind::kScrambled:
            return tables_on(fault).scrambled_clause;
        case FaultKind::kConsistency:
            return fault.rule_clause;
        default:
            return properties(fault.kind).clause;
    }
}

std::string describe(const Fault& fault, std::int64_t value) {
    return place(fault) +
           fmt::format(fmt::runtime(properties(fault.kind).text),
                       ms_text(std::abs(value))) +
           fault.detail + limit(fault);
}
