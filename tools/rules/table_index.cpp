#include "tools/rules/table_index.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <type_traits>

#include "dvb/psi_si.h"
#include "thrift/table_fields.h"

using namespace orvel::thrift::dvb_tables;

namespace {

template <typename Element, typename... Kept>
constexpr bool is_kept(const std::tuple<std::vector<Placed<Kept>>...>* /*elements*/) {
    return (std::is_same_v<Element, Kept> || ...);
}

// A visitor that collects the elements of a structure's lists, and those of their lists.
// It leaves out the kinds of elements that no rule looks at.
template <typename Structure>
struct ElementCollector : IgnoringVisitor {
    const Structure& structure;
    const FieldPlace& place;  // of the structure
    TableIndex::Elements& to;

    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char* name) {
        const std::vector<Element>& elements = structure.*member;
        for (std::size_t i = 0; i < elements.size(); ++i) {
            const FieldPlace at = place.at(fmt::format("{}[{}]", name, i));
            if constexpr (is_kept<Element>(static_cast<TableIndex::Elements*>(nullptr)))
                std::get<std::vector<Placed<Element>>>(to).push_back({at, elements[i]});
            TableFields<Element>::visit(
                ElementCollector<Element>{{}, elements[i], at, to});
        }
    }
};

std::optional<CaDescriptor> ca_descriptor(const Placed<Descriptor>& descriptor) {
    const auto& [place, content] = descriptor;
    const TableKind kind = place.table.kind;
    if (kind != TableKind::kCat && kind != TableKind::kPmt) return std::nullopt;
    if (content.tag != kCaTag || content.data.size() < 4) return std::nullopt;
    const auto byte = [&data = content.data](std::size_t at) {
        return static_cast<std::uint8_t>(data[at]);
    };
    return CaDescriptor{place, static_cast<std::uint16_t>(byte(0) << 8 | byte(1)),
                        static_cast<std::uint16_t>((byte(2) & 0x1F) << 8 | byte(3))};
}

template <typename Key, typename Value>
std::optional<Value> value_of(const std::unordered_map<Key, Value>& map, Key key) {
    const auto found = map.find(key);
    if (found == map.end()) return std::nullopt;
    return found->second;
}

}  // namespace

std::string service_text(std::int32_t service_id) {
    return fmt::format("service {0} (0x{0:04X})", service_id);
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
    for_each_table(tables_, [&](TablePlace table, const auto& content) {
        using Table = std::decay_t<decltype(content)>;
        const FieldPlace place{table, ""};
        TableFields<Table>::visit(ElementCollector<Table>{{}, content, place, elements_});
    });
    for (const auto& [place, program] : all<PATProgram>())
        announced_pids_.emplace(program.program_number, program.pid);
    for (const Placed<Descriptor>& descriptor : all<Descriptor>()) {
        const auto ca = ca_descriptor(descriptor);
        if (ca) ca_descriptors_.push_back(*ca);
    }
    for (std::size_t i = 0; i < tables_.pmts.size(); ++i) {
        const PmtOnPid& pmt = tables_.pmts[i];
        pmts_.emplace(pmt.pmt.program_number, i);
        std::get<std::vector<Placed<PmtOnPid>>>(elements_).push_back(
            {{{TableKind::kPmt, i}, ""}, pmt});
    }
    index_streams();
}

// Of several PMTs that name a PID, the first one counts.
void TableIndex::index_streams() {
    auto ca = std::find_if_not(ca_descriptors_.begin(), ca_descriptors_.end(),
                               std::mem_fn(&CaDescriptor::is_in_cat));
    for (const auto& [place, on_pid] : all<PmtOnPid>()) {
        const PMT& pmt = on_pid.pmt;
        const std::string owner = " of " + service_text(pmt.program_number);
        for (const PMTStream& stream : pmt.streams)
            streams_.emplace(stream.elementary_pid, "a stream" + owner);
        if (pmt.pcr_pid != kNoPcrPid) streams_.emplace(pmt.pcr_pid, "the PCR" + owner);
        for (; ca != ca_descriptors_.end() && ca->place.table.pmt == place.table.pmt;
             ++ca)
            streams_.emplace(ca->pid, "the CA data" + owner);
    }
}

std::optional<std::int32_t> TableIndex::announced_pid(std::int32_t service_id) const {
    return value_of(announced_pids_, service_id);
}

std::optional<std::size_t> TableIndex::pmt_of(std::int32_t service_id) const {
    return value_of(pmts_, service_id);
}

std::string TableIndex::stream_on(std::int32_t pid) const {
    return value_of(streams_, pid).value_or("");
}
