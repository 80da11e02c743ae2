#include "tables/table_packets.h"

#include <cstddef>
#include <new>

#include "dvb/section_limits.h"
#include "dvb/table_kind.h"
#include "tables/section_packetizer.h"

namespace {

std::size_t size_of(const dvbpsi_sdt_service_t& service) {
    std::size_t size = table_info(TableKind::kSdt).entry_header_size;
    for (auto descriptor = service.p_first_descriptor; descriptor != nullptr;
         descriptor = descriptor->p_next) {
        size += kDescriptorHeaderSize + descriptor->i_length;
    }
    return size;
}

// Returns the last service of the group that begins at `first` and fits one section.
dvbpsi_sdt_service_t* last_of_group(dvbpsi_sdt_service_t* first) {
    SectionFill fill(table_info(TableKind::kSdt).header_size);
    fill.add(size_of(*first));
    while (first->p_next != nullptr && !fill.add(size_of(*first->p_next))) {
        first = first->p_next;
    }
    return first;
}

// Returns the sections of the services from `first` to `last`. `sdt` has only these
// services while the generator runs.
SectionsPtr generate_group(dvbpsi_t* handle, dvbpsi_sdt_t& sdt,
                           dvbpsi_sdt_service_t* first, dvbpsi_sdt_service_t* last) {
    dvbpsi_sdt_service_t* const all = sdt.p_first_service;
    dvbpsi_sdt_service_t* const rest = last->p_next;
    sdt.p_first_service = first;
    last->p_next = nullptr;
    SectionsPtr sections(dvbpsi_sdt_sections_generate(handle, &sdt));
    last->p_next = rest;
    sdt.p_first_service = all;
    return sections;
}

void renumber(dvbpsi_t* handle, dvbpsi_psi_section_t* first, std::size_t count) {
    std::size_t number = 0;
    for (auto section = first; section != nullptr; section = section->p_next) {
        section->i_number = static_cast<std::uint8_t>(number++);
        section->i_last_number = static_cast<std::uint8_t>(count - 1);
        dvbpsi_BuildPSISection(handle, section);
    }
}

// libdvbpsi's generator loses descriptors where a service crosses a section's border, and
// it writes past its block when services alone fill a section. So it is called once for
// each group of services that fits one section. Then the sections are renumbered.
//
// Returns null if libdvbpsi makes no section of a group, or too many for a table.
SectionsPtr generate(dvbpsi_t* handle, dvbpsi_sdt_t& sdt) {
    if (sdt.p_first_service == nullptr) {
        return SectionsPtr(dvbpsi_sdt_sections_generate(handle, &sdt));
    }
    SectionsPtr sections;
    dvbpsi_psi_section_t* tail = nullptr;
    std::size_t count = 0;
    for (auto first = sdt.p_first_service; first != nullptr;) {
        dvbpsi_sdt_service_t* const last = last_of_group(first);
        SectionsPtr group = generate_group(handle, sdt, first, last);
        if (!group) return nullptr;
        dvbpsi_psi_section_t* const head = group.get();
        if (tail == nullptr) {
            sections = std::move(group);
        } else {
            tail->p_next = group.release();
        }
        for (tail = head, ++count; tail->p_next != nullptr; tail = tail->p_next) ++count;
        first = last->p_next;
    }
    if (count > kMaxSections) return nullptr;
    if (count > 1) renumber(handle, sections.get(), count);
    return sections;
}

// At most 100 programs per section, so a receiver soon gets a whole section.
SectionsPtr generate(dvbpsi_t* handle, dvbpsi_pat_t& pat) {
    return SectionsPtr(
        dvbpsi_pat_sections_generate(handle, &pat, int{kPatProgramsPerSection}));
}

SectionsPtr generate(dvbpsi_t* handle, dvbpsi_cat_t& cat) {
    return SectionsPtr(dvbpsi_cat_sections_generate(handle, &cat));
}

SectionsPtr generate(dvbpsi_t* handle, dvbpsi_pmt_t& pmt) {
    return SectionsPtr(dvbpsi_pmt_sections_generate(handle, &pmt));
}

}  // namespace

template <typename Table>
std::string table_packets(Table& table, std::uint16_t pid) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    if (!handle) throw std::bad_alloc();
    const SectionsPtr sections = generate(handle.get(), table);
    return sections ? packetize_sections(sections.get(), pid) : std::string();
}

template std::string table_packets(dvbpsi_pat_t& pat, std::uint16_t pid);
template std::string table_packets(dvbpsi_cat_t& cat, std::uint16_t pid);
template std::string table_packets(dvbpsi_sdt_t& sdt, std::uint16_t pid);
template std::string table_packets(dvbpsi_pmt_t& pmt, std::uint16_t pid);
