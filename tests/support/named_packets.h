#ifndef KESTAN_TESTS_SUPPORT_NAMED_PACKETS_H
#define KESTAN_TESTS_SUPPORT_NAMED_PACKETS_H

#include <cstdint>
#include <string>
#include <vector>

#include "dvb/ts_packet.h"
#include "mux/muxed_stream.h"

// Returns the packets of an invented table: packet i of "A" contains "A<i>" and has the
// counter i. `sections` has the number of packets of each section.
inline std::string named_packets(char name, const std::vector<int>& sections) {
    std::string packets;
    for (const int count : sections) {
        for (int i = 0; i < count; ++i) {
            const auto number = packets.size() / kTsPacketSize;
            std::string packet(kTsPacketSize, '\0');
            packet[0] = kSyncByte;
            packet[1] = static_cast<char>(i == 0 ? kPayloadUnitStart : 0);
            packet[3] = static_cast<char>(kHasPayload | (number & kContinuityMask));
            const std::string text = name + std::to_string(number) + ' ';
            packet.replace(4, text.size(), text);
            packets += packet;
        }
    }
    return packets;
}

// Returns the name of the packet that `stream` has for a slot, or "-" for none.
inline std::string next_name(muxed_stream& stream, std::int64_t slot_time_ns,
                             int* counter = nullptr) {
    std::uint8_t packet[kTsPacketSize];
    if (!stream.next_packet(packet, slot_time_ns)) return "-";
    if (counter != nullptr) *counter = continuity_counter_of(packet);
    const std::string text(packet + 4, packet + kTsPacketSize);
    return text.substr(0, text.find(' '));
}

#endif
