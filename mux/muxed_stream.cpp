#include "mux/muxed_stream.h"

void muxed_stream::stamp_continuity(std::uint8_t* packet) noexcept {
    if (cc == CC_NONE) {
        cc = packet[3] & kContinuityMask;
        return;
    }
    if ((packet[3] & kHasPayload) == 0) return;
    cc = static_cast<std::uint8_t>(cc + 1) & kContinuityMask;
    packet[3] = static_cast<std::uint8_t>((packet[3] & ~kContinuityMask) | cc);
}
