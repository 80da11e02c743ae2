#ifndef KESTAN_TOOLS_RECEIVE_DATAGRAM_PACKETS_H
#define KESTAN_TOOLS_RECEIVE_DATAGRAM_PACKETS_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "dvb/ts_packet.h"

// A transport packet with its Reed-Solomon code (ETSI EN 300 429, 4.4).
constexpr std::size_t kCodedPacketSize = 204;

// The transport packets of a datagram.
struct DatagramPackets {
    bool in_rtp = false;                  // behind an RTP header (RFC 3550, RFC 2250)
    const std::uint8_t* first = nullptr;  // within the datagram
    std::size_t count = 0;                // at least one
    std::size_t stride = kTsPacketSize;   // from packet to packet, or kCodedPacketSize

    [[nodiscard]] const std::uint8_t* packet(std::size_t i) const {
        return first + i * stride;
    }
};

// Finds the packets of a datagram of any content. A packet may lack its sync byte if at
// least half of the packets have one, or if the datagram is exactly as long as one
// packet. Returns nullopt if the datagram is not made of whole transport packets.
[[nodiscard]] std::optional<DatagramPackets> find_packets(const std::uint8_t* datagram,
                                                          std::size_t size);

#endif
