#include "tools/receive/table_collector.h"

#include <set>

#include "dvb/psi_si.h"
#include "tools/receive/table_decoder.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// The PAT and the CAT are one table each, whatever their table_id_extension is. A table
// of service information has a sub-table for each table_id_extension (ETSI EN 300 468,
// 5.1.1), and table_ids from here on (table 2).
constexpr std::uint8_t kFirstSiTableId = 0x40;

// Adds the section. If it was the one that was missing of its version, decodes the table
// into `found`; returns whether it has.
template <typename Table>
bool add(SectionSet& sections, const Section& section, std::optional<Table>& found) {
    if (sections.add(section) != SectionSet::Change::kAdded) return false;
    std::optional<Table> table = decode_table<Table>(sections);
    if (!table) return false;
    found.swap(table);
    return true;
}

}  // namespace

void TableCollector::push(std::uint16_t pid, const Section& section) {
    if (!section.is_long() || !section.is_valid()) return;
    const std::uint8_t table_id = section.table_id();
    if (table_id == kPmtTableId) push_pmt(pid, section);
    for_each_single_table([&](TableKind kind, auto member) {
        if (table_info(kind).pid != pid || table_info(kind).table_id != table_id) return;
        const std::uint16_t sub_table =
            table_id < kFirstSiTableId ? std::uint16_t{0} : section.extension();
        const bool is_new = add(single_[{kind, sub_table}], section, found_.*member);
        if (is_new && kind == TableKind::kPat) follow_pat();
    });
}

void TableCollector::push_pmt(std::uint16_t pid, const Section& section) {
    const auto pmt = pmts_.find({pid, section.extension()});
    if (pmt != pmts_.end()) add(pmt->second.sections, section, pmt->second.table);
}

bool TableCollector::follows(std::uint16_t pid) const {
    const TableInfo* const table = table_on(pid);
    if (table != nullptr && table->key != nullptr) return true;
    const auto pmt = pmts_.lower_bound({pid, 0});
    return pmt != pmts_.end() && pmt->first.first == pid;
}

// Looks for the PMTs that the PAT announces. Keeps those found that it still announces.
void TableCollector::follow_pat() {
    std::map<std::pair<std::uint16_t, std::uint16_t>, Pmt> announced;
    for (const PATProgram& program : found_.pat->programs) {
        if (program.program_number == 0) continue;  // gives the network PID
        const std::pair key(static_cast<std::uint16_t>(program.pid),
                            static_cast<std::uint16_t>(program.program_number));
        if (auto known = pmts_.extract(key)) {
            announced.insert(std::move(known));
        } else {
            announced.try_emplace(key);
        }
    }
    pmts_.swap(announced);
}

Multiplex TableCollector::tables() const {
    Multiplex multiplex = found_;
    if (!found_.pat) return multiplex;
    std::set<std::int32_t> services;
    for (const PATProgram& program : found_.pat->programs) {
        const auto pmt = pmts_.find({static_cast<std::uint16_t>(program.pid),
                                     static_cast<std::uint16_t>(program.program_number)});
        if (pmt == pmts_.end() || !pmt->second.table) continue;
        if (!services.insert(program.program_number).second) continue;
        multiplex.pmts.push_back({pmt->first.first, *pmt->second.table});
    }
    return multiplex;
}
