#include "tools/receive/table_collector.h"

#include <set>

#include "dvb/psi_si.h"
#include "tools/receive/table_decoder.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// Adds the section. If it was the one that was missing of its version, decodes the table
// into `found`; returns whether it has.
template <typename Table>
bool add(SectionSet& sections, const Section& section, std::optional<Table>& found,
         std::optional<Table> (*decode)(const SectionSet&)) {
    if (sections.add(section) != SectionSet::Change::kAdded || !sections.is_complete())
        return false;
    std::optional<Table> table = decode(sections);
    if (!table) return false;
    found.swap(table);
    return true;
}

}  // namespace

void TableCollector::push(std::uint16_t pid, const Section& section) {
    if (!section.is_long() || !section.is_valid()) return;
    const std::uint8_t table_id = section.table_id();
    if (pid == kPatPid && table_id == kPatTableId) {
        if (add(pat_, section, found_.pat, &decode_pat)) follow_pat();
    } else if (pid == kCatPid && table_id == kCatTableId) {
        add(cat_, section, found_.cat, &decode_cat);
    } else if (pid == kSdtPid && table_id == kSdtActualTableId) {
        add(sdts_[section.extension()], section, found_.sdt, &decode_sdt);
    } else if (table_id == kPmtTableId) {
        const auto pmt = pmts_.find({pid, section.extension()});
        if (pmt == pmts_.end()) return;
        add(pmt->second.sections, section, pmt->second.table, &decode_pmt);
    }
}

bool TableCollector::follows(std::uint16_t pid) const {
    if (pid == kPatPid || pid == kCatPid || pid == kSdtPid) return true;
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
