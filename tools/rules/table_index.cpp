#include "tools/rules/table_index.h"

#include <type_traits>
#include <vector>

#include "dvb/psi_si.h"
#include "thrift/table_fields.h"
#include "tools/json/number_text.h"
#include "tools/rules/ca_descriptor.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// A visitor that calls `visit` for the descriptors of a structure and of what is in its
// lists. `owner` is the structure's place in `table`, as in "streams[1].".
template <typename Structure>
struct DescriptorVisitor : IgnoringVisitor {
    const Structure& structure;
    TablePlace table;
    std::string owner;
    const TableIndex::Visit& visit;

    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char* name) {
        const std::vector<Element>& elements = structure.*member;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if constexpr (std::is_same_v<Element, Descriptor>) {
                visit(table, owner + element(name, i), elements[i]);
            } else {
                TableFields<Element>::visit(DescriptorVisitor<Element>{
                    {}, elements[i], table, owner + element(name, i) + '.', visit});
            }
        }
    }
};

template <typename Table>
void visit_descriptors(TablePlace place, const Table& table,
                       const TableIndex::Visit& visit) {
    TableFields<Table>::visit(DescriptorVisitor<Table>{{}, table, place, "", visit});
}

}  // namespace

std::string element(const char* list, std::size_t index) {
    return std::string(list) + '[' + std::to_string(index) + ']';
}

std::string service_text(std::int32_t service_id) {
    return "service " + std::to_string(service_id) + " (" + hex_number(service_id, 4) +
           ')';
}

std::string reserved_use(std::int32_t pid) {
    const TableInfo* const table = table_on(static_cast<std::uint16_t>(pid));
    if (table != nullptr) return std::string("the ") + table->name;
    if (pid == kNullPid) return "null packets";
    if (pid < 0x0010) return "other tables of MPEG-2 systems";
    if (pid < kFirstStreamPid) return "service information";
    return "";
}

TableIndex::TableIndex(const Multiplex& multiplex) : tables_(multiplex) {
    if (tables_.pat) {
        for (const PATProgram& program : tables_.pat->programs) {
            announced_pids_.emplace(program.program_number, program.pid);
        }
    }
    for (std::size_t i = 0; i < tables_.pmts.size(); ++i) {
        pmts_.emplace(tables_.pmts[i].pmt.program_number, i);
        index_pids(i);
    }
}

void TableIndex::index_pids(std::size_t pmt) {
    const PMT& table = tables_.pmts[pmt].pmt;
    const std::string owner = " of " + service_text(table.program_number);
    for (const PMTStream& stream : table.streams) {
        streams_.emplace(stream.elementary_pid, "a stream" + owner);
    }
    if (table.pcr_pid != kNoPcrPid) streams_.emplace(table.pcr_pid, "the PCR" + owner);
    for_each_descriptor_of_pmt(
        pmt, [&](TablePlace, const std::string&, const Descriptor& descriptor) {
            const auto ca = ca_descriptor(descriptor);
            if (ca) streams_.emplace(ca->pid, "the CA data" + owner);
        });
}

std::optional<std::int32_t> TableIndex::announced_pid(std::int32_t service_id) const {
    const auto found = announced_pids_.find(service_id);
    if (found == announced_pids_.end()) return std::nullopt;
    return found->second;
}

std::optional<std::size_t> TableIndex::pmt_of(std::int32_t service_id) const {
    const auto found = pmts_.find(service_id);
    if (found == pmts_.end()) return std::nullopt;
    return found->second;
}

const std::string& TableIndex::stream_on(std::int32_t pid) const {
    static const std::string nobody;
    const auto found = streams_.find(pid);
    return found == streams_.end() ? nobody : found->second;
}

void TableIndex::for_each_descriptor(const Visit& visit) const {
    for_each_table(tables_, [&](TablePlace place, const auto& table) {
        visit_descriptors(place, table, visit);
    });
}

void TableIndex::for_each_descriptor_of_pmt(std::size_t index, const Visit& visit) const {
    visit_descriptors(in_pmt(index), tables_.pmts[index].pmt, visit);
}
