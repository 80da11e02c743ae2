#include "tables/section_packetizer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"

namespace {

class Packetizer {
public:
    explicit Packetizer(std::uint16_t pid) {
        packet_[0] = kSyncByte;
        packet_[1] = static_cast<std::uint8_t>(pid >> 8);
        packet_[2] = static_cast<std::uint8_t>(pid & 0xFF);
    }

    void add_section(const std::uint8_t* data, const std::uint8_t* end) {
        packet_[1] |= kPayloadUnitStart;
        packet_[4] = 0;  // pointer_field
        data = add_packet(kTsHeaderSize + 1, data, end);
        packet_[1] &= static_cast<std::uint8_t>(~kPayloadUnitStart);
        while (data < end) data = add_packet(kTsHeaderSize, data, end);
    }

    [[nodiscard]] std::string take_packets() { return std::move(packets_); }

private:
    // Adds a packet with section bytes from `offset` on. Returns the rest of the data.
    const std::uint8_t* add_packet(std::size_t offset, const std::uint8_t* data,
                                   const std::uint8_t* end) {
        packet_[3] = kHasPayload | counter_;
        counter_ = static_cast<std::uint8_t>(counter_ + 1) & kContinuityMask;
        const auto room = static_cast<std::ptrdiff_t>(kTsPacketSize - offset);
        const std::uint8_t* const stop = data + std::min(room, end - data);
        std::fill(std::copy(data, stop, packet_.begin() + offset), packet_.end(),
                  kStuffingByte);
        packets_.append(packet_.begin(), packet_.end());
        return stop;
    }

    std::array<std::uint8_t, kTsPacketSize> packet_{};
    std::uint8_t counter_ = 0;
    std::string packets_;
};

}  // namespace

std::string packetize_sections(const dvbpsi_psi_section_t* first_section,
                               std::uint16_t pid) {
    Packetizer packetizer(pid);
    for (auto section = first_section; section != nullptr; section = section->p_next) {
        const std::size_t crc_size = section->b_syntax_indicator ? kCrc32Size : 0;
        packetizer.add_section(section->p_data, section->p_payload_end + crc_size);
    }
    return packetizer.take_packets();
}
