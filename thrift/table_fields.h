#ifndef KESTAN_THRIFT_TABLE_FIELDS_H
#define KESTAN_THRIFT_TABLE_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "dvb/table_kind.h"
#include "thrift/dvb_tables_types.h"

// The fields of the structures in dvb_tables.thrift: one description, from which their
// ranges are checked, their JSON is read and written, and the format is documented.
//
// TableFields<Structure>::visit(visitor) describes the fields in their order, by calls of
//
//     visitor.number(&Structure::member, NumberField)
//     visitor.flag(&Structure::member, name, value if it is left out)
//     visitor.list(&Structure::member, name)
//     visitor.bytes(&Structure::member, name, greatest size)
//
// TableFields<Structure>::header_size is the size of the structure on air without the
// elements of its lists, in bytes; that of a table is the size of a section's header. A
// table has the members of SectionLimits too. If a multiplex has it only once, it also
// has send(service, table), the call that has it played, and the name of that method.
namespace orvel::thrift::dvb_tables {

struct NumberField {
    const char* name;
    unsigned bits;
    const char* note = "";  // what a value means, for people
    std::int32_t lowest = 0;
    bool is_hex = false;       // as people write it
    bool is_optional = false;  // 0 if it is left out

    [[nodiscard]] constexpr std::int32_t highest() const { return (1 << bits) - 1; }
};

constexpr NumberField pid_field(const char* name, const char* note = "",
                                std::int32_t lowest = 0) {
    return {name, kPidBits, note, lowest, /*is_hex=*/true};
}

template <typename Structure>
struct TableFields;

// What the sections of a table can carry. A table that has other limits hides these.
template <TableKind Kind>
struct SectionLimits {
    static constexpr TableKind kind = Kind;
    static constexpr std::size_t header_size = table_info(Kind).header_size;
    static constexpr std::size_t capacity = section_capacity(header_size);  // bytes
    static constexpr std::size_t most_sections = kMaxSections;
};

template <typename Table, typename Visitor>
void visit_version(Visitor&& visitor) {
    visitor.number(&Table::version_number,
                   {"version_number", 8, "32 to 255 are carried as 0"});
    visitor.flag(&Table::current_next_indicator, "current_next_indicator", true);
}

template <>
struct TableFields<Descriptor> {
    static constexpr std::size_t header_size = kDescriptorHeaderSize;

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&Descriptor::tag, {"tag", 8, "", 0, /*is_hex=*/true});
        visitor.bytes(&Descriptor::data, "data", kMaxDescriptorData);
    }
};

template <>
struct TableFields<PATProgram> {
    static constexpr std::size_t header_size =
        table_info(TableKind::kPat).entry_header_size;

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&PATProgram::program_number,
                       {"program_number", 16, "0 announces the network PID"});
        visitor.number(&PATProgram::pid, pid_field("pid", "", 1));
    }
};

template <>
struct TableFields<PAT> : SectionLimits<TableKind::kPat> {
    static constexpr std::size_t capacity =
        kPatProgramsPerSection * TableFields<PATProgram>::header_size;
    static constexpr const char* method = "NewPAT";
    static constexpr auto send = [](auto& service, const PAT& pat) {
        return service.NewPAT(pat);
    };

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&PAT::transport_stream_id, {"transport_stream_id", 16});
        visit_version<PAT>(visitor);
        visitor.list(&PAT::programs, "programs");
    }
};

template <>
struct TableFields<CAT> : SectionLimits<TableKind::kCat> {
    static constexpr const char* method = "NewCAT";
    static constexpr auto send = [](auto& service, const CAT& cat) {
        return service.NewCAT(cat);
    };

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visit_version<CAT>(visitor);
        visitor.list(&CAT::descriptors, "descriptors");
    }
};

template <>
struct TableFields<SDTService> {
    static constexpr std::size_t header_size =
        table_info(TableKind::kSdt).entry_header_size;

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        using S = SDTService;
        visitor.number(&S::service_id, {"service_id", 16});
        visitor.flag(&S::eit_schedule_flag, "eit_schedule_flag", false);
        visitor.flag(&S::eit_present_following_flag, "eit_present_following_flag", false);
        visitor.number(&S::running_status,
                       {"running_status", 3, "4 is running", 0, /*is_hex=*/false,
                        /*is_optional=*/true});
        visitor.flag(&S::free_ca_mode, "free_ca_mode", false);
        visitor.list(&S::descriptors, "descriptors");
    }
};

template <>
struct TableFields<SDT> : SectionLimits<TableKind::kSdt> {
    static constexpr const char* method = "NewSDTActual";
    static constexpr auto send = [](auto& service, const SDT& sdt) {
        return service.NewSDTActual(sdt);
    };

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&SDT::transport_stream_id, {"transport_stream_id", 16});
        visitor.number(&SDT::original_network_id, {"original_network_id", 16});
        visit_version<SDT>(visitor);
        visitor.list(&SDT::services, "services");
    }
};

template <>
struct TableFields<PMTStream> {
    static constexpr std::size_t header_size =
        table_info(TableKind::kPmt).entry_header_size;

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&PMTStream::stream_type,
                       {"stream_type", 8, "", 0, /*is_hex=*/true});
        visitor.number(&PMTStream::elementary_pid, pid_field("elementary_pid"));
        visitor.list(&PMTStream::descriptors, "descriptors");
    }
};

template <>
struct TableFields<PMT> : SectionLimits<TableKind::kPmt> {
    static constexpr std::size_t most_sections = 1;  // ISO/IEC 13818-1, 2.4.4.9

    template <typename Visitor>
    static void visit(Visitor&& visitor) {
        visitor.number(&PMT::program_number,
                       {"program_number", 16, "the service_id of its service"});
        visit_version<PMT>(visitor);
        visitor.number(&PMT::pcr_pid,
                       pid_field("pcr_pid", "0x1FFF if the program has no PCR"));
        visitor.list(&PMT::descriptors, "descriptors");
        visitor.list(&PMT::streams, "streams");
    }
};

// The tables that a multiplex has only once, as far as it has them.
struct SingleTables {
    std::optional<PAT> pat;
    std::optional<CAT> cat;
    std::optional<SDT> sdt;  // of the actual transport stream
};

// Calls visit(kind, member) for each of these tables. `member` is the table's place, such
// as &SingleTables::pat.
template <typename Visit>
void for_each_single_table(Visit visit) {
    visit(TableKind::kPat, &SingleTables::pat);
    visit(TableKind::kCat, &SingleTables::cat);
    visit(TableKind::kSdt, &SingleTables::sdt);
}

// Ignores all fields: the base of visitors that need some kinds of field.
struct IgnoringVisitor {
    template <typename Member>
    void number(Member, const NumberField&) {}
    template <typename Member>
    void flag(Member, const char*, bool) {}
    template <typename Member>
    void bytes(Member, const char*, std::size_t) {}
    template <typename Member>
    void list(Member, const char*) {}
};

// Returns the size of a structure on air, with all elements of its lists.
template <typename Structure>
[[nodiscard]] std::size_t size_of(const Structure& structure);

// A visitor that calls add(size) for each element of the lists and for bytes.
template <typename Structure, typename Add>
struct SizesOfParts : IgnoringVisitor {
    const Structure& structure;
    Add add;

    void bytes(std::string Structure::*member, const char*, std::size_t) {
        add((structure.*member).size());
    }
    template <typename Element>
    void list(std::vector<Element> Structure::*member, const char*) {
        for (const Element& element : structure.*member) add(size_of(element));
    }
};

template <typename Structure, typename Add>
void for_each_part_size(const Structure& structure, Add add) {
    TableFields<Structure>::visit(SizesOfParts<Structure, Add>{{}, structure, add});
}

template <typename Structure>
std::size_t size_of(const Structure& structure) {
    std::size_t size = TableFields<Structure>::header_size;
    for_each_part_size(structure, [&](std::size_t part) { size += part; });
    return size;
}

// Returns the sections that Kestan makes of a table. If it can have only one, all is in
// that one, whether it fits or not.
template <typename Table>
[[nodiscard]] SectionFill fill_sections(const Table& table) {
    using Fields = TableFields<Table>;
    SectionFill fill(Fields::header_size, Fields::capacity);
    if constexpr (Fields::most_sections == 1) {
        fill.add(size_of(table) - Fields::header_size);
    } else {
        for_each_part_size(table, [&](std::size_t size) { fill.add(size); });
    }
    return fill;
}

}  // namespace orvel::thrift::dvb_tables

#endif
