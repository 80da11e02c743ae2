#ifndef KESTAN_THRIFT_TABLE_REFUSAL_H
#define KESTAN_THRIFT_TABLE_REFUSAL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "thrift/table_fields.h"

// Says why Kestan cannot carry a table, as one line for a person: the table, the place in
// it and the fault, such as "SDT: service 7: running_status is 9, 0 to 7 fit". Returns
// nullopt if Kestan can carry the table whole.
//
// A table is carried whole if each value fits its field (version_number: 0 to 255), each
// descriptor has at most 255 bytes of data, no PAT program is on PID 0, and the sections
// have room for it (see dvb/section_limits.h). The first fault is reported, in the order
// of the table.
//
// Kestan's converters and the control process use the same rules. Memory exhaustion
// raises std::bad_alloc. The functions share nothing: any thread may call them.
//
// Table is any structure whose fields in thrift/table_fields.h have a TableKind.
template <typename Table>
[[nodiscard]] std::optional<std::string> refusal_reason(const Table& table);

// The parts of refusal_reason. The texts are apart from the checks, which run for each
// field of a table.
namespace orvel::thrift::dvb_tables::refusal {

using Fault = std::optional<std::string>;

[[nodiscard]] std::string out_of_range(const NumberField& field, std::int32_t value);

[[nodiscard]] std::string too_long(const char* name, std::size_t size, std::size_t most);

// `what` includes its verb, such as "services take".
[[nodiscard]] std::string too_much(const std::string& what, std::size_t amount,
                                   const char* unit, std::size_t most);

// Returns the place of an element of a list.
template <typename Element>
std::string place_of(const Element& /*element*/, const char* list, std::size_t index) {
    return std::string(list) + "[" + std::to_string(index) + "]";
}
[[nodiscard]] std::string place_of(const PATProgram& program, const char* list,
                                   std::size_t index);
[[nodiscard]] std::string place_of(const SDTService& service, const char* list,
                                   std::size_t index);

template <typename Table>
std::string name_of(const Table& /*table*/) {
    return table_info(TableFields<Table>::kind).name;
}
[[nodiscard]] std::string name_of(const PMT& pmt);

// A visitor that joins the names of the lists, such as "descriptors and streams".
struct ListNames : IgnoringVisitor {
    std::string names;

    template <typename Member>
    void list(Member, const char* name) {
        names += (names.empty() ? "" : " and ") + std::string(name);
    }
};

template <typename Structure>
std::string lists_take(std::size_t amount, const char* unit, std::size_t most) {
    ListNames lists;
    TableFields<Structure>::visit(lists);
    return too_much(lists.names + " take", amount, unit, most);
}

// Returns a fault if the table has more than its sections have room for.
template <typename Table>
Fault excess(const Table& table) {
    using Fields = TableFields<Table>;
    constexpr bool has_one_section = Fields::most_sections == 1;
    const SectionFill fill = fill_sections(table);
    const std::size_t amount = has_one_section ? fill.used() : fill.sections();
    const std::size_t most = has_one_section ? Fields::capacity : Fields::most_sections;
    if (amount <= most) return std::nullopt;
    return lists_take<Table>(amount, has_one_section ? "bytes" : "sections", most);
}
[[nodiscard]] Fault excess(const PAT& pat);

// Returns a fault if a section has no room for the entry of a table: none is split.
template <typename Table, typename Entry>
Fault excess_of_entry(const Entry& entry) {
    constexpr std::size_t header_size = TableFields<Entry>::header_size;
    constexpr std::size_t most = TableFields<Table>::capacity - header_size;
    const std::size_t size = size_of(entry) - header_size;
    if (size <= most) return std::nullopt;
    return lists_take<Entry>(size, "bytes", most);
}

// Finds the first fault of the fields. `HasEntries` is whether the structure is a table
// whose lists are distributed over several sections.
template <bool HasEntries, typename Structure>
void find_fault(const Structure& structure, Fault& fault);

// A visitor that keeps the first fault of the fields.
template <bool HasEntries, typename Structure>
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
            find_fault<false>(elements[i], fault);
            if constexpr (HasEntries) {
                if (!fault) fault = excess_of_entry<Structure>(elements[i]);
            }
            if (fault) fault->insert(0, place_of(elements[i], name, i) + ": ");
        }
    }
};

template <bool HasEntries, typename Structure>
void find_fault(const Structure& structure, Fault& fault) {
    TableFields<Structure>::visit(RangeCheck<HasEntries, Structure>{structure, fault});
}

}  // namespace orvel::thrift::dvb_tables::refusal

template <typename Table>
std::optional<std::string> refusal_reason(const Table& table) {
    using namespace orvel::thrift::dvb_tables;
    refusal::Fault fault;
    refusal::find_fault<(TableFields<Table>::most_sections > 1)>(table, fault);
    if (!fault) fault = refusal::excess(table);
    if (fault) fault->insert(0, refusal::name_of(table) + ": ");
    return fault;
}

#endif
