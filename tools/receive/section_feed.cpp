#include "tools/receive/section_feed.h"

#include <algorithm>
#include <array>

#include "dvb/ts_packet.h"

void SectionFeed::push(std::uint16_t pid, const std::uint8_t* section, std::size_t size) {
    constexpr std::size_t header_size = 4;
    bool is_first = true;
    for (std::size_t at = 0; at < size; is_first = false) {
        std::array<std::uint8_t, kTsPacketSize> packet{};
        packet.fill(kStuffingByte);
        packet[0] = kSyncByte;
        packet[1] =
            static_cast<std::uint8_t>((is_first ? kPayloadUnitStart : 0) | pid >> 8);
        packet[2] = static_cast<std::uint8_t>(pid & 0xFF);
        packet[3] =
            static_cast<std::uint8_t>(kHasPayload | (counters_[pid]++ & kContinuityMask));
        std::size_t to = header_size;
        if (is_first) packet[to++] = 0;  // pointer_field
        const std::size_t part = std::min(kTsPacketSize - to, size - at);
        std::copy_n(section + at, part, &packet[to]);
        at += part;
        collector_.push(packet.data());
    }
}
