#ifndef KESTAN_TOOLS_RECEIVE_RTP_ORDER_H
#define KESTAN_TOOLS_RECEIVE_RTP_ORDER_H

#include <cstdint>
#include <optional>

// Follows the sequence numbers of an RTP stream (RFC 3550, 5.1). One thread.
class RtpOrder {
public:
    // A datagram that is this far behind may be the first one of a sender that has
    // restarted (RFC 3550, A.1).
    static constexpr int kMaxMisorder = 100;

    // Takes the next datagram's RTP header. Returns how far its sequence number is ahead
    // of the highest one so far: 1 if no datagram is missing, 0 or less if it comes late
    // or again. Returns nullopt if a new count begins: with the first datagram, with
    // another source, and with the second datagram in a row that is far behind, for then
    // the sender has restarted.
    [[nodiscard]] std::optional<int> push(const std::uint8_t* header);

    // Returns the sequence number of the last datagram.
    [[nodiscard]] std::uint16_t number() const { return number_; }

private:
    std::optional<std::uint32_t> source_;
    std::uint16_t number_ = 0;
    std::uint16_t highest_ = 0;
    std::optional<std::uint16_t> after_far_behind_;
};

#endif
