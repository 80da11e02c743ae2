#include "tables/sdt_sections.h"

#include <cstddef>
#include <cstdint>

#include "framework/section_limits.h"

namespace {

std::size_t size_of(const dvbpsi_sdt_service_t& service) {
    std::size_t size = kSdtServiceHeaderSize;
    for (auto descriptor = service.p_first_descriptor; descriptor != nullptr;
         descriptor = descriptor->p_next) {
        size += kDescriptorHeaderSize + descriptor->i_length;
    }
    return size;
}

// The last of the services from `first` on that fit one section together.
dvbpsi_sdt_service_t* last_of_group(dvbpsi_sdt_service_t* first) {
    SectionFill fill(section_capacity(kSdtHeaderSize));
    fill.add(size_of(*first));
    while (first->p_next != nullptr && !fill.add(size_of(*first->p_next))) {
        first = first->p_next;
    }
    return first;
}

// Makes the one section of the group that begins at `first` and returns the next group.
dvbpsi_sdt_service_t* generate_group(dvbpsi_t* handle, dvbpsi_sdt_t& sdt,
                                     dvbpsi_sdt_service_t* first,
                                     dvbpsi_psi_section_t** section) {
    dvbpsi_sdt_service_t* const whole = sdt.p_first_service;
    dvbpsi_sdt_service_t* const last = last_of_group(first);
    dvbpsi_sdt_service_t* const rest = last->p_next;
    sdt.p_first_service = first;
    last->p_next = nullptr;
    *section = dvbpsi_sdt_sections_generate(handle, &sdt);
    last->p_next = rest;
    sdt.p_first_service = whole;
    return rest;
}

void number_through(dvbpsi_t* handle, dvbpsi_psi_section_t* first, std::size_t count) {
    std::size_t number = 0;
    for (auto section = first; section != nullptr; section = section->p_next) {
        section->i_number = static_cast<std::uint8_t>(number++);
        section->i_last_number = static_cast<std::uint8_t>(count - 1);
        dvbpsi_BuildPSISection(handle, section);
    }
}

}  // namespace

SectionsPtr generate_sdt_sections(dvbpsi_t* handle, dvbpsi_sdt_t& sdt) {
    if (sdt.p_first_service == nullptr) {
        return SectionsPtr(dvbpsi_sdt_sections_generate(handle, &sdt));
    }
    dvbpsi_psi_section_t* first = nullptr;
    dvbpsi_psi_section_t** tail = &first;
    std::size_t count = 0;
    for (dvbpsi_sdt_service_t* group = sdt.p_first_service; group != nullptr; ++count) {
        group = generate_group(handle, sdt, group, tail);
        if (*tail == nullptr) {
            dvbpsi_DeletePSISections(first);
            return nullptr;
        }
        tail = &(*tail)->p_next;
    }
    if (count > 1) number_through(handle, first, count);
    return SectionsPtr(first);
}
