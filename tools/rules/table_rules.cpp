#include <cstdint>
#include <optional>
#include <string>

#include "thrift/table_refusal.h"
#include "tools/rules/rule_functions.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::int32_t kMaxVersion = 31;  // ISO/IEC 13818-1, 2.4.4.5: 5 bits

// Calls visit(place, table) for each table.
template <typename Visit>
void for_each_table(const Multiplex& multiplex, Visit visit) {
    if (multiplex.pat) visit(kInPat, *multiplex.pat);
    if (multiplex.cat) visit(kInCat, *multiplex.cat);
    if (multiplex.sdt) visit(kInSdt, *multiplex.sdt);
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        visit(in_pmt(i), multiplex.pmts[i].pmt);
    }
}

// What is wrong with the lengths inside a descriptor; null if nothing is.
const char* inner_fault(const Descriptor& descriptor) {
    const std::string& data = descriptor.data;
    const auto length_at = [&](std::size_t at) -> std::size_t {
        return at < data.size() ? static_cast<std::uint8_t>(data[at]) : data.size();
    };
    if (descriptor.tag == 0x09 && data.size() < 4) {  // CA
        return "the CA descriptor has less than 4 bytes";
    }
    if (descriptor.tag == 0x0A && data.size() % 4 != 0) {  // ISO 639 language
        return "the ISO 639 language descriptor ends inside a language";
    }
    if (descriptor.tag == 0x48) {  // service
        const std::size_t provider = length_at(1);
        const std::size_t name = length_at(2 + provider);
        if (3 + provider + name > data.size()) {
            return "the names of the service descriptor are longer than the descriptor";
        }
    }
    return nullptr;
}

}  // namespace

void check_version_above_31(const TableIndex& tables, RuleReport& report) {
    for_each_table(tables.tables(), [&](TablePlace place, const auto& table) {
        if (table.version_number <= kMaxVersion) return;
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
    tables.for_each_descriptor(
        [&](TablePlace place, const std::string& field, const Descriptor& descriptor) {
            const char* const fault = inner_fault(descriptor);
            if (fault == nullptr) return;
            report.add(place, field,
                       std::string(fault) +
                           ": receivers ignore the descriptor, or read past its end");
        });
}
