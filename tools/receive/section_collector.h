#ifndef KESTAN_TOOLS_RECEIVE_SECTION_COLLECTOR_H
#define KESTAN_TOOLS_RECEIVE_SECTION_COLLECTOR_H

#include <cstdint>
#include <functional>

#include "dvb/libdvbpsi.h"

// Collects the sections of one PID from its packets and counts what is wrong with them.
//
// libdvbpsi puts the sections together and checks their CRC_32 (a short section, such as
// a TDT's, has none). A section is up to 4,096 bytes long. One thread.
class SectionCollector {
public:
    // Takes each whole section without an error, each time that it comes.
    using Callback = std::function<void(const dvbpsi_psi_section_t&)>;

    explicit SectionCollector(Callback on_section);
    ~SectionCollector();
    SectionCollector(const SectionCollector&) = delete;
    SectionCollector& operator=(const SectionCollector&) = delete;

    // Takes the PID's next packet, kTsPacketSize bytes.
    // REQUIRES: it is no exact repeat of the packet before; ContinuityCheck finds those.
    void push(const std::uint8_t* packet);

    // Returns whether a section has begun and is not complete yet.
    [[nodiscard]] bool is_collecting() const {
        return handle_->p_decoder->p_current_section != nullptr;
    }

    // Returns the number of sections with a wrong CRC_32.
    [[nodiscard]] std::uint64_t crc_errors() const { return crc_errors_; }

private:
    void drop_torn_section(const std::uint8_t* packet);
    static void on_gathered(dvbpsi_t* handle, dvbpsi_psi_section_t* section);
    static void on_message(dvbpsi_t* handle, dvbpsi_msg_level_t level, const char* text);

    Callback on_section_;
    DvbpsiPtr handle_;
    std::uint64_t crc_errors_ = 0;
};

#endif
