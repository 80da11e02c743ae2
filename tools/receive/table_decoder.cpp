#include "tools/receive/table_decoder.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "dvb/libdvbpsi.h"
#include "dvb/psi_si.h"
#include "dvb/section_limits.h"

using namespace orvel::thrift::dvb_tables;

namespace {

std::vector<Descriptor> to_thrift(const dvbpsi_descriptor_t* first) {
    std::vector<Descriptor> descriptors;
    for (auto from = first; from != nullptr; from = from->p_next) {
        Descriptor& to = descriptors.emplace_back();
        to.tag = from->i_tag;
        to.data.assign(from->p_data, from->p_data + from->i_length);
    }
    return descriptors;
}

PAT to_thrift(const dvbpsi_pat_t& from) {
    PAT to;
    to.transport_stream_id = from.i_ts_id;
    to.version_number = from.i_version;
    to.current_next_indicator = from.b_current_next;
    for (auto program = from.p_first_program; program != nullptr;
         program = program->p_next) {
        PATProgram& added = to.programs.emplace_back();
        added.program_number = program->i_number;
        added.pid = program->i_pid;
    }
    return to;
}

CAT to_thrift(const dvbpsi_cat_t& from) {
    CAT to;
    to.version_number = from.i_version;
    to.current_next_indicator = from.b_current_next;
    to.descriptors = to_thrift(from.p_first_descriptor);
    return to;
}

SDT to_thrift(const dvbpsi_sdt_t& from) {
    SDT to;
    to.transport_stream_id = from.i_extension;
    to.original_network_id = from.i_network_id;
    to.version_number = from.i_version;
    to.current_next_indicator = from.b_current_next;
    for (auto service = from.p_first_service; service != nullptr;
         service = service->p_next) {
        SDTService& added = to.services.emplace_back();
        added.service_id = service->i_service_id;
        added.eit_schedule_flag = service->b_eit_schedule;
        added.eit_present_following_flag = service->b_eit_present;
        added.running_status = service->i_running_status;
        added.free_ca_mode = service->b_free_ca;
        added.descriptors = to_thrift(service->p_first_descriptor);
    }
    return to;
}

PMT to_thrift(const dvbpsi_pmt_t& from) {
    PMT to;
    to.program_number = from.i_program_number;
    to.version_number = from.i_version;
    to.current_next_indicator = from.b_current_next;
    to.pcr_pid = from.i_pcr_pid;
    to.descriptors = to_thrift(from.p_first_descriptor);
    for (auto stream = from.p_first_es; stream != nullptr; stream = stream->p_next) {
        PMTStream& added = to.streams.emplace_back();
        added.stream_type = stream->i_type;
        added.elementary_pid = stream->i_pid;
        added.descriptors = to_thrift(stream->p_first_descriptor);
    }
    return to;
}

// Returns a copy of the section as libdvbpsi's own assembly would make it. Only its
// number among those of its table is given.
SectionsPtr to_dvbpsi(const Section& from, std::size_t number, std::size_t last_number) {
    SectionsPtr to(dvbpsi_NewPSISection(kMaxSectionSize));
    if (!to) throw std::bad_alloc();
    to->i_table_id = from.table_id();
    to->b_syntax_indicator = true;
    to->i_length = static_cast<std::uint16_t>(from.size() - Section::kLengthEnd);
    to->i_extension = from.extension();
    to->i_version = from.version();
    to->b_current_next = from.is_current();
    to->i_number = static_cast<std::uint8_t>(number);
    to->i_last_number = static_cast<std::uint8_t>(last_number);
    std::copy(from.bytes().begin(), from.bytes().end(), to->p_data);
    to->p_payload_start = to->p_data + (from.body() - from.begin());
    to->p_payload_end = to->p_payload_start + from.body_size();
    return to;
}

// Called by libdvbpsi with each table that it has decoded.
template <typename Table, auto Delete, typename Decoded>
void store(void* found, Decoded* decoded) {
    const DvbpsiOwner<Decoded, Delete> owner(decoded);
    *static_cast<std::optional<Table>*>(found) = to_thrift(*decoded);
}

// A decoder of libdvbpsi: how to attach it to a handle, and how to detach it. It stores
// the table in `found`. `id` is the table_id_extension.
template <typename Table, auto Attach, auto Detach, auto Delete>
struct PsiDecoder {
    static bool attach(dvbpsi_t* handle, std::uint16_t /*id*/, void* found) {
        return Attach(handle, &store<Table, Delete>, found);
    }
    static constexpr auto detach = Detach;
};

// One for tables of service information, which is one of a demultiplexer's.
template <typename Table, std::uint8_t TableId, auto Attach, auto Delete>
struct SiDecoder {
    static bool attach(dvbpsi_t* handle, std::uint16_t id, void* found) {
        const auto ignore = [](dvbpsi_t*, std::uint8_t, std::uint16_t, void*) {};
        return dvbpsi_AttachDemux(handle, ignore, nullptr) &&
               Attach(handle, TableId, id, &store<Table, Delete>, found);
    }
    static constexpr auto detach = dvbpsi_DetachDemux;
};

template <typename Table>
struct Decoder;
template <>
struct Decoder<PAT>
    : PsiDecoder<PAT, dvbpsi_pat_attach, dvbpsi_pat_detach, dvbpsi_pat_delete> {};
template <>
struct Decoder<CAT>
    : PsiDecoder<CAT, dvbpsi_cat_attach, dvbpsi_cat_detach, dvbpsi_cat_delete> {};
template <>
struct Decoder<SDT>
    : SiDecoder<SDT, kSdtActualTableId, dvbpsi_sdt_attach, dvbpsi_sdt_delete> {};
template <>
struct Decoder<PMT> {
    static bool attach(dvbpsi_t* handle, std::uint16_t id, void* found) {
        return dvbpsi_pmt_attach(handle, id, &store<PMT, dvbpsi_pmt_delete>, found);
    }
    static constexpr auto detach = dvbpsi_pmt_detach;
};

template <typename Table>
struct HandleDeleter {
    void operator()(dvbpsi_t* handle) const noexcept {
        if (dvbpsi_decoder_present(handle)) Decoder<Table>::detach(handle);
        dvbpsi_delete(handle);
    }
};

// Decodes a table of these sections. libdvbpsi takes packets alone: the sections enter
// where it hands over one that it has assembled.
template <typename Table>
std::optional<Table> decode_together(const std::vector<Section>& sections) {
    std::optional<Table> found;
    const std::unique_ptr<dvbpsi_t, HandleDeleter<Table>> handle(
        dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    if (!handle || !Decoder<Table>::attach(handle.get(), sections[0].extension(), &found))
        throw std::bad_alloc();
    for (std::size_t i = 0; i < sections.size(); ++i) {
        if (sections[i].size() > kMaxSectionSize) return std::nullopt;
        handle->p_decoder->pf_gather(
            handle.get(), to_dvbpsi(sections[i], i, sections.size() - 1).release());
    }
    return found;
}

template <typename Table>
std::optional<Table> decode(const std::vector<Section>& sections) {
    return decode_together<Table>(sections);
}

// libdvbpsi does not hand over a PAT without programs.
PAT pat_without_programs(const Section& section) {
    PAT pat;
    pat.transport_stream_id = section.extension();
    pat.version_number = section.version();
    pat.current_next_indicator = section.is_current();
    return pat;
}

// Decodes each section as a table of its own: libdvbpsi walks the programs of a table to
// append one.
template <>
std::optional<PAT> decode(const std::vector<Section>& sections) {
    std::optional<PAT> pat;
    for (const Section& section : sections) {
        const auto part = section.body_size() == 0 ? pat_without_programs(section)
                                                   : decode_together<PAT>({section});
        if (!part) return std::nullopt;
        if (!pat) {
            pat = part;
        } else if (part->transport_stream_id == pat->transport_stream_id) {
            pat->programs.insert(pat->programs.end(), part->programs.begin(),
                                 part->programs.end());
        } else {
            return std::nullopt;
        }
    }
    return pat;
}

// Returns whether the program_info_length (ISO/IEC 13818-1, 2.4.4.8) fits. libdvbpsi
// trusts it and would read past the end of the section.
bool has_room_for_program_info(const Section& pmt) {
    constexpr std::size_t fixed_fields = 4;
    const std::uint8_t* const body = pmt.body();
    return pmt.body_size() >= fixed_fields &&
           fixed_fields + ((body[2] & 0x0FU) << 8 | body[3]) <= pmt.body_size();
}

template <>
std::optional<PMT> decode(const std::vector<Section>& sections) {
    if (!std::all_of(sections.begin(), sections.end(), has_room_for_program_info))
        return std::nullopt;
    return decode_together<PMT>(sections);
}

}  // namespace

template <typename Table>
std::optional<Table> decode_table(const SectionSet& sections) {
    if (!sections.is_complete()) return std::nullopt;
    return decode<Table>(sections.sections());
}

template std::optional<PAT> decode_table(const SectionSet& sections);
template std::optional<CAT> decode_table(const SectionSet& sections);
template std::optional<SDT> decode_table(const SectionSet& sections);
template std::optional<PMT> decode_table(const SectionSet& sections);
