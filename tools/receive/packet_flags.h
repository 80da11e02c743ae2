#ifndef KESTAN_TOOLS_RECEIVE_PACKET_FLAGS_H
#define KESTAN_TOOLS_RECEIVE_PACKET_FLAGS_H

#include <cstddef>
#include <cstdint>

#include "dvb/ts_packet.h"

// What a packet of any content says of itself, beyond its PID (ISO/IEC 13818-1, 2.4.3).

// Returns the transport_error_indicator: any field of the packet may be wrong.
[[nodiscard]] inline bool has_transport_error(const std::uint8_t* packet) {
    return (packet[1] & 0x80) != 0;
}

[[nodiscard]] inline bool has_adaptation_field(const std::uint8_t* packet) {
    return (packet[3] & kHasAdaptation) != 0;
}

// Returns where the payload begins, which can be beyond the packet's end.
// REQUIRES: has_payload().
[[nodiscard]] inline std::size_t payload_offset(const std::uint8_t* packet) {
    return kTsHeaderSize + (has_adaptation_field(packet) ? 1U + packet[4] : 0U);
}

// Returns the PCR_flag.
[[nodiscard]] inline bool has_pcr(const std::uint8_t* packet) {
    return has_adaptation_field(packet) && packet[4] != 0 && (packet[5] & 0x10) != 0;
}

// Returns whether a PES packet starts here, with its packet_start_code_prefix. No section
// looks like that: reserved bits after its table_id are 1.
[[nodiscard]] inline bool starts_pes_packet(const std::uint8_t* packet) {
    if ((packet[1] & kPayloadUnitStart) == 0 || !has_payload(packet)) return false;
    const std::size_t at = payload_offset(packet);
    return at + 3 <= kTsPacketSize && packet[at] == 0 && packet[at + 1] == 0 &&
           packet[at + 2] == 1;
}

#endif
