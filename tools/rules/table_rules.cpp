#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dvb/psi_si.h"
#include "thrift/table_fields.h"
#include "thrift/table_refusal.h"
#include "tools/json/descriptor_fields.h"
#include "tools/rules/rules.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void check_version_above_31(const TableIndex& tables, const RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        if (table.version_number <= kMaxVersionNumber) return;
        report({place, "version_number"},
               "version {} does not fit in 5 bits and goes out as 0: receivers that have "
               "a version 0 see no change",
               table.version_number);
    });
}

void check_not_in_force(const TableIndex& tables, const RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        if (table.current_next_indicator) return;
        report(
            {place, "current_next_indicator"},
            "the table is announced for later and none is in force: receivers ignore it");
    });
}

void check_transport_stream_id_differs(const TableIndex& tables,
                                       const RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.pat || !multiplex.sdt) return;
    const std::int32_t in_sdt = multiplex.sdt->transport_stream_id;
    const std::int32_t in_pat = multiplex.pat->transport_stream_id;
    if (in_sdt == in_pat) return;
    report({kInSdt, "transport_stream_id"},
           "the SDT is of transport stream {}, the PAT of {}: receivers take the names "
           "for those of another stream",
           in_sdt, in_pat);
}

void check_table_refused(const TableIndex& tables, const RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        const std::optional<std::string> reason = refusal_reason(table);
        if (!reason) return;
        report({place, ""}, "{}: Kestan refuses the table, receivers do not get it",
               *reason);
    });
}

void check_descriptor_overrun(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, descriptor] : tables.all<Descriptor>()) {
        const std::string overrun = inner_overrun(descriptor);
        if (overrun.empty()) continue;
        report(place, "{}: receivers ignore the descriptor, or read past its end",
               overrun);
    }
}

// Returns whether a descriptor says what a stream of private data carries.
bool says_what_is_carried(const Descriptor& descriptor) {
    constexpr std::int32_t first_private_tag = 0x80;
    // ISO/IEC 13818-1, 2.6: registration, metadata, extension. ETSI EN 300 468, 6.1: VBI
    // data and teletext, teletext, subtitling, data_broadcast and its ID, AC-3, enhanced
    // AC-3, DTS, AAC, extension.
    static const std::set<std::int32_t> tags{0x05, 0x26, 0x3F, 0x45, 0x46, 0x56, 0x59,
                                             0x64, 0x66, 0x6A, 0x7A, 0x7B, 0x7C, 0x7F};
    return descriptor.tag >= first_private_tag || tags.count(descriptor.tag) != 0;
}

void check_private_stream_unknown(const TableIndex& tables, const RuleReport& report) {
    constexpr std::int32_t private_pes = 0x06;  // ISO/IEC 13818-1, table 2-34
    for (const auto& [place, stream] : tables.all<PMTStream>()) {
        const std::vector<Descriptor>& descriptors = stream.descriptors;
        if (stream.stream_type != private_pes ||
            std::any_of(descriptors.begin(), descriptors.end(), says_what_is_carried)) {
            continue;
        }
        report(place,
               "stream_type 0x06 is private data, and no descriptor says which: "
               "receivers do not play the stream");
    }
}

void check_sdt_sections_too_close(const TableIndex& tables, const RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.sdt) return;
    constexpr auto first_too_many = static_cast<std::size_t>(
        table_info(TableKind::kSdt).period_ns / kLeastSectionGapNs);
    const SectionFill fill = fill_sections(*multiplex.sdt);
    if (fill.sections() < 2 || fill.packets() < first_too_many) return;
    report({kInSdt, ""},
           "the SDT has {} packets in {} sections, and from {} on its sections come less "
           "than 25 ms apart: slow receivers miss some",
           fill.packets(), fill.sections(), first_too_many);
}

}  // namespace

std::vector<Rule> table_rules() {
    return {
        {"table_refused", Severity::kError,
         "ISO/IEC 13818-1, 2.4.4; ETSI EN 300 468, 5.1.1", check_table_refused},
        {"descriptor_overrun", Severity::kError,
         "ISO/IEC 13818-1, 2.6; ETSI EN 300 468, 6.2", check_descriptor_overrun},
        {"private_stream_unknown", Severity::kWarning, "ISO/IEC 13818-1, table 2-34",
         check_private_stream_unknown, RuleScope::kFileTables},
        {"sdt_sections_too_close", Severity::kWarning, "ETSI EN 300 468, 5.1.4",
         check_sdt_sections_too_close, RuleScope::kFileTables},
        {"transport_stream_id_differs", Severity::kWarning, "ETSI EN 300 468, 5.2.3",
         check_transport_stream_id_differs},
        {"not_in_force", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_not_in_force},
        {"version_above_31", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_version_above_31},
    };
}
