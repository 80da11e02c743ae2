#include "tools/receive/section_collector.h"

#include <new>
#include <string_view>
#include <utility>

#include "dvb/section_limits.h"
#include "tools/receive/packet_push.h"

SectionCollector::SectionCollector(Callback on_section)
    : on_section_(std::move(on_section)),
      handle_(dvbpsi_new(&SectionCollector::on_message, DVBPSI_MSG_ERROR)) {
    if (!handle_) throw std::bad_alloc();
    handle_->p_sys = this;
    void* const decoder =
        dvbpsi_decoder_new(&SectionCollector::on_gathered, kMaxPrivateSectionSize,
                           /*b_discontinuity=*/true, sizeof(dvbpsi_decoder_t));
    if (decoder == nullptr) throw std::bad_alloc();
    handle_->p_decoder = static_cast<dvbpsi_decoder_t*>(decoder);
}

SectionCollector::~SectionCollector() {
    dvbpsi_decoder_delete(handle_->p_decoder);
    handle_->p_decoder = nullptr;
}

void SectionCollector::push(const std::uint8_t* packet) {
    drop_torn_section(packet);
    push_packet(handle_.get(), packet);
}

// If a section begins before the previous one is complete, discards the previous one:
// libdvbpsi would fill it with bytes of the new one and count a wrong CRC_32.
void SectionCollector::drop_torn_section(const std::uint8_t* packet) {
    dvbpsi_decoder_t* const decoder = handle_->p_decoder;
    const bool begins_section =
        starts_section(packet) && (packet[3] & kHasAdaptation) == 0 && packet[4] == 0;
    if (!begins_section || decoder->p_current_section == nullptr) return;
    dvbpsi_DeletePSISections(std::exchange(decoder->p_current_section, nullptr));
}

void SectionCollector::on_gathered(dvbpsi_t* handle, dvbpsi_psi_section_t* section) {
    const SectionsPtr owner(section);
    static_cast<SectionCollector*>(handle->p_sys)->on_section_(*section);
}

void SectionCollector::on_message(dvbpsi_t* handle, dvbpsi_msg_level_t /*level*/,
                                  const char* text) {
    // libdvbpsi reports a dropped section by this message alone.
    if (std::string_view(text).find("Bad CRC_32") == std::string_view::npos) return;
    ++static_cast<SectionCollector*>(handle->p_sys)->crc_errors_;
}
