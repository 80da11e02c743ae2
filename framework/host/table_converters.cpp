#include "framework/table_converters.h"

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "dvb/table_kind.h"
#include "framework/log.h"
#include "thrift/table_refusal.h"

namespace orvel::thrift::dvb_tables {

namespace {

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

// Calls `add`, one of libdvbpsi's *_add functions, and appends the new entry to the list
// that begins at `head`. Those functions walk the list to find its end, which takes
// seconds for the largest tables. So `add` is called with an empty list, and the new
// entry is then stored in `tail`, the last link of the list.
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

// Calls `add` with the tag, length and data of each descriptor. libdvbpsi takes data that
// is not const, so it gets a copy. The data is never null: then libdvbpsi would put
// uninitialised memory on air.
template <typename Add>
void add_descriptors(const std::vector<Descriptor>& descriptors, Add add) {
    for (const Descriptor& descriptor : descriptors) {
        std::string data = descriptor.data;
        not_null(add(u8(descriptor.tag), static_cast<std::uint8_t>(data.size()),
                     reinterpret_cast<std::uint8_t*>(data.data())));
    }
}

// Logs why the table cannot be carried, if it cannot.
template <typename Table>
bool can_carry(const Table& table) {
    const std::optional<std::string> reason = refusal_reason(table);
    if (reason) log_function(kLogWarning, 0, "%s", reason->c_str());
    return !reason;
}

}  // namespace

dvbpsi_pat_t* t2dPAT(const PAT& pat) {
    if (!can_carry(pat)) return nullptr;
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
    if (!can_carry(cat)) return nullptr;
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
    if (!can_carry(sdt)) return nullptr;
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
    if (!can_carry(pmt)) return nullptr;
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
