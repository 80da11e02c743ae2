#include "tools/rules/table_index.h"

#include <vector>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/rules/ca_descriptor.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// The last PID of those that are reserved for tables with a fixed PID.
constexpr std::int32_t kLastReservedPid = 0x001F;

void visit_descriptors(TablePlace table, const std::string& owner,
                       const std::vector<Descriptor>& descriptors,
                       const TableIndex::Visit& visit) {
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
        visit(table, owner + element("descriptors", i), descriptors[i]);
    }
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
    if (pid <= kLastReservedPid) return "service information";
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
    if (tables_.cat) {
        visit_descriptors({TableKind::kCat, 0}, "", tables_.cat->descriptors, visit);
    }
    if (tables_.sdt) {
        for (std::size_t i = 0; i < tables_.sdt->services.size(); ++i) {
            visit_descriptors(kInSdt, element("services", i) + '.',
                              tables_.sdt->services[i].descriptors, visit);
        }
    }
    for (std::size_t i = 0; i < tables_.pmts.size(); ++i) {
        for_each_descriptor_of_pmt(i, visit);
    }
}

void TableIndex::for_each_descriptor_of_pmt(std::size_t index, const Visit& visit) const {
    const PMT& table = tables_.pmts[index].pmt;
    visit_descriptors(in_pmt(index), "", table.descriptors, visit);
    for (std::size_t i = 0; i < table.streams.size(); ++i) {
        visit_descriptors(in_pmt(index), element("streams", i) + '.',
                          table.streams[i].descriptors, visit);
    }
}
