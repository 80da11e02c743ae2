#ifndef KESTAN_TOOLS_RECEIVE_RTP_ORDER_H
#define KESTAN_TOOLS_RECEIVE_RTP_ORDER_H

#include <cstdint>
#include <optional>

// Finds the datagrams of an RTP stream that come too late or again (RFC 3550, 5.1). One
// thread.
class RtpOrder {
public:
    // Takes the next datagram's RTP header. Returns whether its sequence number is not
    // above the highest one so far. A new source, or a second datagram in a row that is
    // far behind, begins a new count: the sender has restarted (RFC 3550, A.1).
    [[nodiscard]] bool is_late(const std::uint8_t* header);

private:
    struct Highest {
        std::uint32_t source;
        std::uint16_t number;
    };

    std::optional<Highest> highest_;
    std::optional<std::uint16_t> after_far_behind_;
};

#endif
