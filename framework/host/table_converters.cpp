#include "framework/table_converters.h"

#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"

namespace orvel::thrift::dvb_tables {

namespace {

constexpr std::size_t kMaxPatPrograms =
    kMaxSections * 100;  // Kestan puts 100 in a section

bool in_range(std::int32_t value, std::int32_t lowest, std::int32_t highest) {
    return lowest <= value && value <= highest;
}

bool fits_8_bits(std::int32_t value) {
    return in_range(value, 0, std::numeric_limits<std::uint8_t>::max());
}

bool fits_16_bits(std::int32_t value) {
    return in_range(value, 0, std::numeric_limits<std::uint16_t>::max());
}

bool fits_13_bits(std::int32_t value) {
    return in_range(value, 0, kMaxPid);
}

std::uint8_t u8(std::int32_t value) {
    return static_cast<std::uint8_t>(value);
}

std::uint16_t u16(std::int32_t value) {
    return static_cast<std::uint16_t>(value);
}

template <typename Object>
Object* not_null(Object* object) {
    if (object == nullptr) throw std::bad_alloc();
    return object;
}

// Appends to a list of libdvbpsi's what `add`, one of its *_add functions, makes. These
// walk the whole list to find its end, which takes seconds for the largest tables: so
// `add` is shown an empty list, and the new entry is linked behind `tail`, the list's
// last link.
template <typename Entry, typename Add>
Entry* append(Entry**& tail, Entry*& head, Add add) {
    Entry* const first = head;
    head = nullptr;
    Entry* const entry = add();
    head = first;
    *tail = not_null(entry);
    tail = &entry->p_next;
    return entry;
}

bool valid(const std::vector<Descriptor>& descriptors) {
    for (const Descriptor& descriptor : descriptors) {
        if (!fits_8_bits(descriptor.tag)) return false;
        if (descriptor.data.size() > kMaxDescriptorData) return false;
    }
    return true;
}

std::size_t size_of(const Descriptor& descriptor) {
    return kDescriptorHeaderSize + descriptor.data.size();
}

std::size_t size_of(const std::vector<Descriptor>& descriptors) {
    std::size_t size = 0;
    for (const Descriptor& descriptor : descriptors) size += size_of(descriptor);
    return size;
}

// Adds valid descriptors through `add`, which has the arguments tag, length and data. The
// data is copied; it is never null, for which libdvbpsi would put stray memory on air.
template <typename Add>
void add_descriptors(const std::vector<Descriptor>& descriptors, Add add) {
    for (const Descriptor& descriptor : descriptors) {
        std::string data = descriptor.data;
        not_null(add(u8(descriptor.tag), static_cast<std::uint8_t>(data.size()),
                     reinterpret_cast<std::uint8_t*>(data.data())));
    }
}

bool valid(const PAT& pat) {
    if (!fits_16_bits(pat.transport_stream_id)) return false;
    if (!fits_8_bits(pat.version_number)) return false;
    if (pat.programs.size() > kMaxPatPrograms) return false;
    for (const PATProgram& program : pat.programs) {
        if (!fits_16_bits(program.program_number)) return false;
        if (!in_range(program.pid, 1, kMaxPid)) return false;
    }
    return true;
}

bool valid(const CAT& cat) {
    if (!fits_8_bits(cat.version_number)) return false;
    if (!valid(cat.descriptors)) return false;
    SectionFill fill(section_capacity(kCatHeaderSize));
    for (const Descriptor& descriptor : cat.descriptors) fill.add(size_of(descriptor));
    return fill.sections() <= kMaxSections;
}

bool valid(const SDT& sdt) {
    if (!fits_16_bits(sdt.transport_stream_id)) return false;
    if (!fits_16_bits(sdt.original_network_id)) return false;
    if (!fits_8_bits(sdt.version_number)) return false;
    constexpr std::size_t capacity = section_capacity(kSdtHeaderSize);
    SectionFill fill(capacity);
    for (const SDTService& service : sdt.services) {
        if (!fits_16_bits(service.service_id)) return false;
        if (!in_range(service.running_status, 0, kMaxRunningStatus)) return false;
        if (!valid(service.descriptors)) return false;
        const std::size_t size = kSdtServiceHeaderSize + size_of(service.descriptors);
        if (size > capacity) return false;
        fill.add(size);
    }
    return fill.sections() <= kMaxSections;
}

bool valid(const PMT& pmt) {
    if (!fits_16_bits(pmt.program_number)) return false;
    if (!fits_8_bits(pmt.version_number)) return false;
    if (!fits_13_bits(pmt.pcr_pid)) return false;
    if (!valid(pmt.descriptors)) return false;
    std::size_t size = size_of(pmt.descriptors);
    for (const PMTStream& stream : pmt.streams) {
        if (!fits_8_bits(stream.stream_type)) return false;
        if (!fits_13_bits(stream.elementary_pid)) return false;
        if (!valid(stream.descriptors)) return false;
        size += kPmtStreamHeaderSize + size_of(stream.descriptors);
    }
    return size <= section_capacity(kPmtHeaderSize);
}

}  // namespace

dvbpsi_pat_t* t2dPAT(const PAT& pat) {
    if (!valid(pat)) return nullptr;
    PatPtr table(
        not_null(dvbpsi_pat_new(u16(pat.transport_stream_id), u8(pat.version_number),
                                pat.current_next_indicator)));
    dvbpsi_pat_program_t** tail = &table->p_first_program;
    for (const PATProgram& program : pat.programs) {
        append(tail, table->p_first_program, [&] {
            return dvbpsi_pat_program_add(table.get(), u16(program.program_number),
                                          u16(program.pid));
        });
    }
    return table.release();
}

dvbpsi_cat_t* t2dCAT(const CAT& cat) {
    if (!valid(cat)) return nullptr;
    CatPtr table(
        not_null(dvbpsi_cat_new(u8(cat.version_number), cat.current_next_indicator)));
    dvbpsi_descriptor_t** tail = &table->p_first_descriptor;
    add_descriptors(cat.descriptors, [&](auto... descriptor) {
        return append(tail, table->p_first_descriptor, [&] {
            return dvbpsi_cat_descriptor_add(table.get(), descriptor...);
        });
    });
    return table.release();
}

dvbpsi_sdt_t* t2dSDT(const SDT& sdt) {
    if (!valid(sdt)) return nullptr;
    SdtPtr table(not_null(dvbpsi_sdt_new(
        kSdtActualTableId, u16(sdt.transport_stream_id), u8(sdt.version_number),
        sdt.current_next_indicator, u16(sdt.original_network_id))));
    dvbpsi_sdt_service_t** tail = &table->p_first_service;
    for (const SDTService& service : sdt.services) {
        dvbpsi_sdt_service_t* const added = append(tail, table->p_first_service, [&] {
            return dvbpsi_sdt_service_add(
                table.get(), u16(service.service_id), service.eit_schedule_flag,
                service.eit_present_following_flag, u8(service.running_status),
                service.free_ca_mode);
        });
        add_descriptors(service.descriptors, [&](auto... descriptor) {
            return dvbpsi_sdt_service_descriptor_add(added, descriptor...);
        });
    }
    return table.release();
}

dvbpsi_pmt_t* t2dPMT(const PMT& pmt) {
    if (!valid(pmt)) return nullptr;
    PmtPtr table(not_null(dvbpsi_pmt_new(u16(pmt.program_number), u8(pmt.version_number),
                                         pmt.current_next_indicator, u16(pmt.pcr_pid))));
    add_descriptors(pmt.descriptors, [&](auto... descriptor) {
        return dvbpsi_pmt_descriptor_add(table.get(), descriptor...);
    });
    for (const PMTStream& stream : pmt.streams) {
        dvbpsi_pmt_es_t* const added = not_null(dvbpsi_pmt_es_add(
            table.get(), u8(stream.stream_type), u16(stream.elementary_pid)));
        add_descriptors(stream.descriptors, [&](auto... descriptor) {
            return dvbpsi_pmt_es_descriptor_add(added, descriptor...);
        });
    }
    return table.release();
}

}  // namespace orvel::thrift::dvb_tables
