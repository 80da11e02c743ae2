#include "tools/continuity_check.h"

#include <algorithm>

namespace {

constexpr std::uint8_t kDiscontinuityIndicator = 0x80;  // in byte 5

int counter(const std::uint8_t* packet) {
    return packet[3] & kContinuityMask;
}

bool has_payload(const std::uint8_t* packet) {
    return (packet[3] & kHasPayload) != 0;
}

bool says_discontinuity(const std::uint8_t* packet) {
    return (packet[3] & kHasAdaptation) != 0 && packet[4] > 0 &&
           (packet[5] & kDiscontinuityIndicator) != 0;
}

}  // namespace

bool ContinuityCheck::push(const std::uint8_t* packet) {
    const bool is_repeat = last_ && repeats(packet);
    if (last_ && !is_repeat && !follows(packet)) ++errors_;
    repeated_ = is_repeat;
    std::copy_n(packet, kTsPacketSize, last_.emplace().begin());
    return !is_repeat;
}

bool ContinuityCheck::follows(const std::uint8_t* packet) const {
    const int step = has_payload(packet) ? 1 : 0;
    return counter(packet) == ((counter(last_->data()) + step) & kContinuityMask) ||
           says_discontinuity(packet);
}

bool ContinuityCheck::repeats(const std::uint8_t* packet) const {
    return has_payload(packet) && !repeated_ &&
           std::equal(last_->begin(), last_->end(), packet);
}
