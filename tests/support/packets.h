#ifndef KESTAN_TESTS_SUPPORT_PACKETS_H
#define KESTAN_TESTS_SUPPORT_PACKETS_H

#include <cstdint>
#include <string>
#include <vector>

// Transport packets, written from the syntax of ISO/IEC 13818-1, 2.4.3.2, without the
// product's constants.

inline const std::uint8_t* bytes_of(const std::string& packets) {
    return reinterpret_cast<const std::uint8_t*>(packets.data());
}

// Returns a packet that ends in stuffing. `content` is its payload, or its adaptation
// field and its payload: `control` has the bits that say so.
inline std::string ts_packet(int pid, int counter, const std::string& content = "",
                             int control = 0x10) {
    std::string packet{'\x47', static_cast<char>(pid >> 8), static_cast<char>(pid),
                       static_cast<char>(control | (counter & 0x0F))};
    packet += content;
    packet.resize(188, '\xFF');
    return packet;
}

// Returns the packet with these bits of a byte set.
inline std::string with_bits(std::string packet, std::size_t byte, int bits) {
    packet[byte] = static_cast<char>(packet[byte] | bits);
    return packet;
}

// Sets the payload_unit_start_indicator.
inline std::string with_start(const std::string& packet) {
    return with_bits(packet, 1, 0x40);
}

// Sets the transport_error_indicator.
inline std::string with_error(const std::string& packet) {
    return with_bits(packet, 1, 0x80);
}

// Returns the packets of sections that each begin in a new packet. `counter` counts on.
inline std::string section_packets(const std::vector<std::string>& sections, int pid,
                                   int& counter) {
    std::string packets;
    for (const std::string& section : sections) {
        const std::string payload = '\0' + section;  // pointer_field
        for (std::size_t at = 0; at < payload.size(); at += 184) {
            const std::string packet = ts_packet(pid, counter++, payload.substr(at, 184));
            packets += at == 0 ? with_start(packet) : packet;
        }
    }
    return packets;
}

// Returns an RTP header (RFC 3550, 5.1): the lowest 16 bits of `number` are the sequence
// number, and the 32 bits above them the source.
inline std::string rtp_header(std::uint64_t number) {
    std::string header(12, '\x80');
    for (const std::size_t i : {0u, 1u, 2u, 3u, 4u, 5u})
        header[i < 2 ? 3 - i : 13 - i] = static_cast<char>(number >> 8 * i);
    return header;
}

#endif
