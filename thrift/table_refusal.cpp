#include "thrift/table_refusal.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "dvb/section_limits.h"
#include "thrift/table_fields.h"

using namespace orvel::thrift::dvb_tables;

namespace {

using Fault = std::optional<std::string>;

// Writes a number in groups of three digits: "25,600".
std::string grouped(std::size_t number) {
    constexpr std::size_t group = 3;
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > group; at -= group) {
        text.insert(at - group, ",");
    }
    return text;
}

// Returns a fault if `amount` is above `most`. `what` includes its verb, such as
// "services take".
Fault too_much(std::string_view what, std::size_t amount, const char* unit,
               std::size_t most) {
    if (amount <= most) return std::nullopt;
    return std::string(what) + " " + grouped(amount) + " " + unit + ", " + grouped(most) +
           " fit";
}

// These are apart from the checks, which run for each field of a table.
std::string out_of_range(const NumberField& field, std::int32_t value) {
    return std::string(field.name) + " is " + std::to_string(value) + ", " +
           std::to_string(field.lowest) + " to " + std::to_string(field.highest()) +
           " fit";
}

Fault too_long(const char* name, std::size_t size, std::size_t most) {
    return too_much(std::string(name) + " takes", size, "bytes", most);
}

// Returns the place of an element of a list.
template <typename Element>
std::string place_of(const Element& /*element*/, const char* list, std::size_t index) {
    return std::string(list) + "[" + std::to_string(index) + "]";
}

std::string place_of(const PATProgram& program, const char* /*list*/, std::size_t) {
    return "program " + std::to_string(program.program_number);
}

std::string place_of(const SDTService& service, const char* /*list*/, std::size_t) {
    return "service " + std::to_string(service.service_id);
}

// Returns a fault if the structure has more than its section or its table has room for.
template <typename Structure>
Fault excess(const Structure& /*structure*/) {
    return std::nullopt;
}

Fault excess(const PAT& pat) {
    return too_much("the table has", pat.programs.size(), "programs",
                    kMaxSections * kPatProgramsPerSection);
}

Fault excess(const CAT& cat) {
    return too_much("descriptors take", fill_sections(cat).sections(), "sections",
                    kMaxSections);
}

Fault excess(const SDTService& service) {
    constexpr std::size_t header_size = TableFields<SDTService>::header_size;
    return too_much("descriptors take", size_of(service) - header_size, "bytes",
                    section_capacity(TableFields<SDT>::header_size) - header_size);
}

Fault excess(const SDT& sdt) {
    return too_much("services take", fill_sections(sdt).sections(), "sections",
                    kMaxSections);
}

Fault excess(const PMT& pmt) {
    return too_much("descriptors and streams take", fill_sections(pmt).used(), "bytes",
                    section_capacity(TableFields<PMT>::header_size));
}

template <typename Structure>
void find_fault(const Structure& structure, Fault& fault);

// A visitor that keeps the first fault of the fields.
template <typename Structure>
struct RangeCheck {
    const Structure& structure;
    Fault& fault;

    void number(std::int32_t Structure::*member, const NumberField& field) {
        const std::int32_t value = structure.*member;
        if (fault || (field.lowest <= value && value <= field.highest())) return;
        fault = out_of_range(field, value);
    }

    void flag(bool Structure::*, const char*, bool) {}

    void bytes(std::string Structure::*member, const char* name, std::size_t most) {
        const std::size_t size = (structure.*member).size();
        if (fault || size <= most) return;
        fault = too_long(name, size, most);
    }

    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char* name) {
        const std::vector<Element>& elements = structure.*member;
        for (std::size_t i = 0; i < elements.size() && !fault; ++i) {
            find_fault(elements[i], fault);
            if (fault) fault->insert(0, place_of(elements[i], name, i) + ": ");
        }
    }
};

template <typename Structure>
void find_fault(const Structure& structure, Fault& fault) {
    TableFields<Structure>::visit(RangeCheck<Structure>{structure, fault});
    if (!fault) fault = excess(structure);
}

template <typename Table>
std::string name_of(const Table& /*table*/) {
    return table_info(TableFields<Table>::kind).name;
}

std::string name_of(const PMT& pmt) {
    return std::string(table_info(TableKind::kPmt).full_name) + ' ' +
           std::to_string(pmt.program_number);
}

}  // namespace

template <typename Table>
Fault refusal_reason(const Table& table) {
    Fault fault;
    find_fault(table, fault);
    if (fault) fault->insert(0, name_of(table) + ": ");
    return fault;
}

template Fault refusal_reason(const PAT& pat);
template Fault refusal_reason(const CAT& cat);
template Fault refusal_reason(const SDT& sdt);
template Fault refusal_reason(const PMT& pmt);
