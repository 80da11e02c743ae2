#ifndef KESTAN_TOOLS_RECEIVE_PACKET_PUSH_H
#define KESTAN_TOOLS_RECEIVE_PACKET_PUSH_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "dvb/libdvbpsi.h"
#include "dvb/ts_packet.h"

// Gives a decoder the next packet, kTsPacketSize bytes of any content.
//
// libdvbpsi takes packets that are not const. It reads the pointer_field where the
// adaptation_field_length says, even if that is after the packet's end. So it gets a copy
// with zeros after it.
inline void push_packet(dvbpsi_t* decoder, const std::uint8_t* packet) {
    constexpr std::size_t farthest_pointer_field = 5 + 255;
    std::array<std::uint8_t, farthest_pointer_field + 1> copy{};
    std::copy_n(packet, kTsPacketSize, copy.begin());
    dvbpsi_packet_push(decoder, copy.data());
}

#endif
