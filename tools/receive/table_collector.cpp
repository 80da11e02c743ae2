#include "tools/receive/table_collector.h"

#include <algorithm>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dvb/psi_si.h"
#include "tools/receive/packet_push.h"

using namespace orvel::thrift::dvb_tables;

namespace {

dvbpsi_t* new_handle() {
    dvbpsi_t* const handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
    if (handle == nullptr) throw std::bad_alloc();
    return handle;
}

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

}  // namespace

// Finds the PMT of one program among the sections of its PID.
struct TableCollector::PmtDecoder {
    explicit PmtDecoder(std::uint16_t program) : number(program), handle(new_handle()) {
        const auto on_pmt = [](void* self, dvbpsi_pmt_t* new_pmt) {
            const PmtPtr table(new_pmt);
            static_cast<PmtDecoder*>(self)->pmt = to_thrift(*table);
        };
        if (!dvbpsi_pmt_attach(handle.get(), number, on_pmt, this))
            throw std::bad_alloc();
        handle->p_sys = this;
        gather = std::exchange(handle->p_decoder->pf_gather, &PmtDecoder::gather_checked);
    }

    // libdvbpsi trusts program_info_length (ISO/IEC 13818-1, 2.4.4.8) and would read past
    // the end of the section.
    static void gather_checked(dvbpsi_t* handle, dvbpsi_psi_section_t* section) {
        constexpr std::ptrdiff_t fixed_fields = 4;
        const std::uint8_t* const payload = section->p_payload_start;
        const std::ptrdiff_t size = section->p_payload_end - payload;
        const auto* const self = static_cast<PmtDecoder*>(handle->p_sys);
        if (size >= fixed_fields &&
            fixed_fields + ((payload[2] & 0x0F) << 8 | payload[3]) <= size) {
            self->gather(handle, section);
        } else {
            dvbpsi_DeletePSISections(section);
        }
    }

    std::uint16_t number;
    std::optional<PMT> pmt;
    std::unique_ptr<dvbpsi_t, DecoderDeleter<dvbpsi_pmt_detach>> handle;
    dvbpsi_callback_gather_t gather = nullptr;  // libdvbpsi's
};

TableCollector::TableCollector()
    : pat_decoder_(new_handle()), cat_decoder_(new_handle()), sdt_decoder_(new_handle()) {
    const auto on_new_pat = [](void* self, dvbpsi_pat_t* new_pat) {
        static_cast<TableCollector*>(self)->on_pat(new_pat);
    };
    const auto on_new_cat = [](void* self, dvbpsi_cat_t* new_cat) {
        const CatPtr table(new_cat);
        static_cast<TableCollector*>(self)->found_.cat = to_thrift(*table);
    };
    if (!dvbpsi_pat_attach(pat_decoder_.get(), on_new_pat, this) ||
        !dvbpsi_cat_attach(cat_decoder_.get(), on_new_cat, this) ||
        !dvbpsi_AttachDemux(sdt_decoder_.get(), &TableCollector::on_sdt_subtable, this)) {
        throw std::bad_alloc();
    }
}

TableCollector::~TableCollector() = default;

void TableCollector::push(const std::uint8_t* packet) {
    const auto pid = pid_of(packet);
    if (pid == kPatPid) push_packet(pat_decoder_.get(), packet);
    if (pid == kCatPid) push_packet(cat_decoder_.get(), packet);
    if (pid == kSdtPid) push_packet(sdt_decoder_.get(), packet);
    const auto [first, last] = pmt_decoders_.equal_range(pid);
    for (auto decoder = first; decoder != last; ++decoder) {
        push_packet(decoder->second->handle.get(), packet);
    }
}

void TableCollector::on_pat(dvbpsi_pat_t* new_pat) {
    const PatPtr table(new_pat);
    found_.pat = to_thrift(*table);
    // PID 0 carries the PAT: such a program cannot be found, and no file can have it.
    auto& programs = found_.pat->programs;
    programs.erase(std::remove_if(programs.begin(), programs.end(),
                                  [](const PATProgram& at) { return at.pid == kPatPid; }),
                   programs.end());
    pmt_decoders_.clear();
    for (const PATProgram& program : found_.pat->programs) {
        if (program.program_number == 0) continue;  // announces the network PID
        const auto number = static_cast<std::uint16_t>(program.program_number);
        pmt_decoders_.emplace(static_cast<std::uint16_t>(program.pid),
                              std::make_unique<PmtDecoder>(number));
    }
}

void TableCollector::on_sdt_subtable(dvbpsi_t* handle, std::uint8_t table_id,
                                     std::uint16_t extension, void* self) {
    if (table_id != kSdtActualTableId) return;
    const auto on_sdt = [](void* collector, dvbpsi_sdt_t* new_sdt) {
        const SdtPtr table(new_sdt);
        static_cast<TableCollector*>(collector)->found_.sdt = to_thrift(*table);
    };
    dvbpsi_sdt_attach(handle, table_id, extension, on_sdt, self);
}

Multiplex TableCollector::tables() const {
    Multiplex multiplex = found_;
    if (!found_.pat) return multiplex;
    std::set<std::int32_t> services;
    for (const PATProgram& program : found_.pat->programs) {
        const auto [first, last] =
            pmt_decoders_.equal_range(static_cast<std::uint16_t>(program.pid));
        const auto decoder = std::find_if(first, last, [&](const auto& candidate) {
            return candidate.second->number == program.program_number;
        });
        if (decoder == last || !decoder->second->pmt) continue;
        if (!services.insert(program.program_number).second) continue;
        multiplex.pmts.push_back({decoder->first, *decoder->second->pmt});
    }
    return multiplex;
}
