#ifndef KESTAN_TOOLS_RECEIVE_PACKET_PUSH_H
#define KESTAN_TOOLS_RECEIVE_PACKET_PUSH_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "dvb/libdvbpsi.h"
#include "dvb/ts_packet.h"

// Gives a decoder the next packet, kTsPacketSize bytes of any content.
//
// libdvbpsi does not promise const, and looks for the pointer_field where the
// adaptation_field_length says, be it after the packet's end: hence a copy with zeros.
inline void push_packet(dvbpsi_t* decoder, const std::uint8_t* packet) {
    constexpr std::size_t farthest_pointer_field = 5 + 255;
    std::array<std::uint8_t, farthest_pointer_field + 1> copy{};
    std::copy_n(packet, kTsPacketSize, copy.begin());
    dvbpsi_packet_push(decoder, copy.data());
}

#endif
