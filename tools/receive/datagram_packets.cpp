#include "tools/receive/datagram_packets.h"

#include <bitstream/ietf/rtp.h>

namespace {

constexpr std::size_t kRtpWord = 4;

struct Bytes {
    const std::uint8_t* data;
    std::size_t size;
};

// Returns nullopt if fewer than half of the packets have a sync byte.
std::optional<DatagramPackets> packets_with(std::size_t stride, Bytes bytes) {
    if (bytes.size == 0 || bytes.size % stride != 0) return std::nullopt;
    DatagramPackets packets;
    packets.first = bytes.data;
    packets.count = bytes.size / stride;
    packets.stride = stride;
    std::size_t synced = 0;
    for (std::size_t i = 0; i < packets.count; ++i)
        synced += packets.packet(i)[0] == kSyncByte ? 1 : 0;
    if (synced * 2 < packets.count) return std::nullopt;
    return packets;
}

std::optional<DatagramPackets> packets_in(Bytes bytes) {
    if (const auto plain = packets_with(kTsPacketSize, bytes)) return plain;
    return packets_with(kCodedPacketSize, bytes);
}

// Returns the bytes after an RTP header (RFC 3550, 5.1), or nullopt if the datagram has
// none.
std::optional<Bytes> payload_of_rtp(Bytes bytes) {
    if (bytes.size < RTP_HEADER_SIZE || !rtp_check_hdr(bytes.data)) return std::nullopt;
    std::size_t header = RTP_HEADER_SIZE + kRtpWord * rtp_get_cc(bytes.data);
    if (rtp_check_extension(bytes.data)) {
        if (header + RTP_EXTENSION_SIZE > bytes.size) return std::nullopt;
        header += RTP_EXTENSION_SIZE + kRtpWord * rtpx_get_length(bytes.data + header);
    }
    const bool is_padded = rtp_check_padding(bytes.data);
    const std::size_t padding = is_padded ? bytes.data[bytes.size - 1] : 0;
    if (header + padding >= bytes.size) return std::nullopt;
    return Bytes{bytes.data + header, bytes.size - header - padding};
}

}  // namespace

std::optional<DatagramPackets> find_packets(const std::uint8_t* datagram,
                                            std::size_t size) {
    const Bytes bytes{datagram, size};
    if (const auto plain = packets_in(bytes)) return plain;
    if (const auto payload = payload_of_rtp(bytes)) {
        auto packets = packets_in(*payload);
        if (packets) packets->in_rtp = true;
        if (packets) return packets;
    }
    if (size == kTsPacketSize) return DatagramPackets{false, datagram, 1, kTsPacketSize};
    return std::nullopt;
}
