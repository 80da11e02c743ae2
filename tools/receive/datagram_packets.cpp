#include "tools/receive/datagram_packets.h"

namespace {

// The RTP header (RFC 3550, 5.1).
constexpr std::size_t kRtpFixedSize = 12;
constexpr std::uint8_t kRtpVersionMask = 0xC0;
constexpr std::uint8_t kRtpVersion = 0x80;
constexpr std::uint8_t kRtpPadding = 0x20;
constexpr std::uint8_t kRtpExtension = 0x10;
constexpr std::uint8_t kRtpSourcesMask = 0x0F;
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

// Returns the bytes after an RTP header, or nullopt if the datagram has none.
std::optional<Bytes> rtp_payload(Bytes bytes) {
    if (bytes.size < kRtpFixedSize || (bytes.data[0] & kRtpVersionMask) != kRtpVersion)
        return std::nullopt;
    std::size_t header =
        kRtpFixedSize + kRtpWord * std::size_t(bytes.data[0] & kRtpSourcesMask);
    if ((bytes.data[0] & kRtpExtension) != 0) {
        if (header + kRtpWord > bytes.size) return std::nullopt;
        const std::uint8_t* const length = bytes.data + header + 2;
        header += kRtpWord * (1u + (std::size_t{length[0]} << 8 | length[1]));
    }
    const bool is_padded = (bytes.data[0] & kRtpPadding) != 0;
    const std::size_t padding = is_padded ? bytes.data[bytes.size - 1] : 0;
    if (header + padding >= bytes.size) return std::nullopt;
    return Bytes{bytes.data + header, bytes.size - header - padding};
}

}  // namespace

std::optional<DatagramPackets> find_packets(const std::uint8_t* datagram,
                                            std::size_t size) {
    const Bytes bytes{datagram, size};
    if (const auto plain = packets_in(bytes)) return plain;
    if (const auto payload = rtp_payload(bytes)) {
        auto packets = packets_in(*payload);
        if (packets) packets->in_rtp = true;
        if (packets) return packets;
    }
    if (size == kTsPacketSize) return DatagramPackets{false, datagram, 1, kTsPacketSize};
    return std::nullopt;
}
