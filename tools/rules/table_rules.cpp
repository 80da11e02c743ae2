#include <cstdint>
#include <optional>
#include <string>

#include "dvb/psi_si.h"
#include "thrift/table_refusal.h"
#include "tools/json/descriptor_fields.h"
#include "tools/rules/rule.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void check_version_above_31(const TableIndex& tables, RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        if (table.version_number <= kMaxVersionNumber) return;
        report.add(place, "version_number",
                   "version " + std::to_string(table.version_number) +
                       " does not fit in 5 bits and goes out as 0: receivers that have a "
                       "version 0 see no change");
    });
}

void check_not_in_force(const TableIndex& tables, RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        if (table.current_next_indicator) return;
        report.add(place, "current_next_indicator",
                   "the table is announced for later and none is in force: receivers "
                   "ignore it");
    });
}

void check_transport_stream_id_differs(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.pat || !multiplex.sdt) return;
    const std::int32_t in_sdt = multiplex.sdt->transport_stream_id;
    const std::int32_t in_pat = multiplex.pat->transport_stream_id;
    if (in_sdt == in_pat) return;
    report.add(kInSdt, "transport_stream_id",
               "the SDT is of transport stream " + std::to_string(in_sdt) +
                   ", the PAT of " + std::to_string(in_pat) +
                   ": receivers take the names for those of another stream");
}

void check_table_refused(const TableIndex& tables, RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        const std::optional<std::string> reason = refusal_reason(table);
        if (!reason) return;
        report.add(place, "",
                   *reason + ": Kestan refuses the table, receivers do not get it");
    });
}

void check_descriptor_overrun(const TableIndex& tables, RuleReport& report) {
    tables.for_each_descriptor([&](TablePlace place, const std::string& field,
                                   const Descriptor& descriptor) {
        const std::string overrun = inner_overrun(descriptor);
        if (overrun.empty()) return;
        report.add(place, field,
                   overrun + ": receivers ignore the descriptor, or read past its end");
    });
}

}  // namespace

std::vector<Rule> table_rules() {
    return {
        {"table_refused", Severity::kError,
         "ISO/IEC 13818-1, 2.4.4; ETSI EN 300 468, 5.1.1", check_table_refused},
        {"descriptor_overrun", Severity::kError,
         "ISO/IEC 13818-1, 2.6; ETSI EN 300 468, 6.2", check_descriptor_overrun},
        {"transport_stream_id_differs", Severity::kWarning, "ETSI EN 300 468, 5.2.3",
         check_transport_stream_id_differs},
        {"not_in_force", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_not_in_force},
        {"version_above_31", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_version_above_31},
    };
}
