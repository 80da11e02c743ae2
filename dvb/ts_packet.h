#ifndef KESTAN_DVB_TS_PACKET_H
#define KESTAN_DVB_TS_PACKET_H

#include <cstddef>
#include <cstdint>

// The transport packet's header (ISO/IEC 13818-1, 2.4.3.2): byte 0 sync_byte, bytes 1 and
// 2 payload_unit_start_indicator and PID, byte 3 adaptation_field_control and
// continuity_counter.

constexpr std::size_t kTsPacketSize = 188;
constexpr std::size_t kTsHeaderSize = 4;
constexpr std::uint64_t kTsPacketBits = kTsPacketSize * 8;

constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::uint8_t kPayloadUnitStart = 0x40;  // in byte 1
constexpr std::uint8_t kHasAdaptation = 0x20;     // in byte 3
constexpr std::uint8_t kHasPayload = 0x10;        // in byte 3
constexpr std::uint8_t kContinuityMask = 0x0F;    // in byte 3
constexpr std::uint8_t kStuffingByte = 0xFF;      // after the last section of a packet

[[nodiscard]] inline std::uint16_t pid_of(const std::uint8_t* packet) {
    return static_cast<std::uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
}

// Returns the payload_unit_start_indicator. In a packet of a table it means that a
// section starts in this packet.
[[nodiscard]] inline bool starts_section(const std::uint8_t* packet) {
    return (packet[1] & kPayloadUnitStart) != 0;
}

[[nodiscard]] inline bool has_payload(const std::uint8_t* packet) {
    return (packet[3] & kHasPayload) != 0;
}

[[nodiscard]] inline std::uint8_t continuity_counter_of(const std::uint8_t* packet) {
    return packet[3] & kContinuityMask;
}

#endif
