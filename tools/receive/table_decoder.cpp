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

template <auto Detach>
struct DecoderDeleter {
    void operator()(dvbpsi_t* handle) const noexcept {
        if (dvbpsi_decoder_present(handle)) Detach(handle);
        dvbpsi_delete(handle);
    }
};

// Gives all sections of a table to the decoder that `attach` adds to a handle. libdvbpsi
// takes packets alone: the sections enter where it hands over one that it has assembled.
template <auto Detach, typename Attach>
void decode(const std::vector<Section>& sections, const Attach& attach) {
    const std::unique_ptr<dvbpsi_t, DecoderDeleter<Detach>> handle(
        dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    if (!handle || !attach(handle.get())) throw std::bad_alloc();
    for (std::size_t i = 0; i < sections.size(); ++i) {
        if (sections[i].size() > kMaxSectionSize) return;
        handle->p_decoder->pf_gather(
            handle.get(), to_dvbpsi(sections[i], i, sections.size() - 1).release());
    }
}

// Called by libdvbpsi with each table that it has decoded.
template <typename Owner, typename Table>
void store(void* found, typename Owner::pointer decoded) {
    const Owner owner(decoded);
    *static_cast<std::optional<Table>*>(found) = to_thrift(*owner);
}

// Returns whether the program_info_length (ISO/IEC 13818-1, 2.4.4.8) fits. libdvbpsi
// trusts it and would read past the end of the section.
bool has_room_for_program_info(const Section& pmt) {
    constexpr std::size_t fixed_fields = 4;
    const std::uint8_t* const body = pmt.body();
    return pmt.body_size() >= fixed_fields &&
           fixed_fields + ((body[2] & 0x0FU) << 8 | body[3]) <= pmt.body_size();
}

// libdvbpsi does not hand over a PAT without programs.
PAT pat_without_programs(const Section& section) {
    PAT pat;
    pat.transport_stream_id = section.extension();
    pat.version_number = section.version();
    pat.current_next_indicator = section.is_current();
    return pat;
}

}  // namespace

// Each section is decoded as a table of its own: libdvbpsi walks the programs of a table
// to append one.
std::optional<PAT> decode_pat(const SectionSet& table) {
    std::optional<PAT> pat;
    if (!table.is_complete()) return pat;
    for (const Section& section : table.sections()) {
        std::optional<PAT> part;
        decode<dvbpsi_pat_detach>({section}, [&](dvbpsi_t* handle) {
            return dvbpsi_pat_attach(handle, &store<PatPtr, PAT>, &part);
        });
        if (section.body_size() == 0) part = pat_without_programs(section);
        if (!part) return std::nullopt;
        if (!pat) {
            pat.swap(part);
        } else if (part->transport_stream_id == pat->transport_stream_id) {
            pat->programs.insert(pat->programs.end(), part->programs.begin(),
                                 part->programs.end());
        } else {
            return std::nullopt;
        }
    }
    return pat;
}

std::optional<CAT> decode_cat(const SectionSet& table) {
    std::optional<CAT> cat;
    if (!table.is_complete()) return cat;
    decode<dvbpsi_cat_detach>(table.sections(), [&](dvbpsi_t* handle) {
        return dvbpsi_cat_attach(handle, &store<CatPtr, CAT>, &cat);
    });
    return cat;
}

std::optional<SDT> decode_sdt(const SectionSet& table) {
    std::optional<SDT> sdt;
    if (!table.is_complete()) return sdt;
    const std::vector<Section> sections = table.sections();
    decode<dvbpsi_DetachDemux>(sections, [&](dvbpsi_t* handle) {
        return dvbpsi_AttachDemux(
                   handle, [](dvbpsi_t*, std::uint8_t, std::uint16_t, void*) {},
                   nullptr) &&
               dvbpsi_sdt_attach(handle, kSdtActualTableId, sections[0].extension(),
                                 &store<SdtPtr, SDT>, &sdt);
    });
    return sdt;
}

std::optional<PMT> decode_pmt(const SectionSet& table) {
    std::optional<PMT> pmt;
    if (!table.is_complete()) return pmt;
    const std::vector<Section> sections = table.sections();
    if (!std::all_of(sections.begin(), sections.end(), &has_room_for_program_info))
        return pmt;
    decode<dvbpsi_pmt_detach>(sections, [&](dvbpsi_t* handle) {
        return dvbpsi_pmt_attach(handle, sections[0].extension(), &store<PmtPtr, PMT>,
                                 &pmt);
    });
    return pmt;
}
