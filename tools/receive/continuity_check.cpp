#include "tools/receive/continuity_check.h"

#include <algorithm>

#include "tools/receive/packet_flags.h"

namespace {

constexpr std::uint8_t kDiscontinuityIndicator = 0x80;  // in byte 5

bool has_discontinuity_indicator(const std::uint8_t* packet) {
    return has_adaptation_field(packet) && packet[4] > 0 &&
           (packet[5] & kDiscontinuityIndicator) != 0;
}

}  // namespace

Continuity ContinuityCheck::push(const std::uint8_t* packet) {
    const bool is_repeat = last_ && repeats(packet);
    const bool follows_last = !last_ || follows(packet);
    repeated_ = is_repeat;
    std::copy_n(packet, kTsPacketSize, last_.emplace().begin());
    if (is_repeat) return Continuity::kRepeat;
    if (follows_last) return Continuity::kInOrder;
    return has_discontinuity_indicator(packet) ? Continuity::kExcused
                                               : Continuity::kBroken;
}

bool ContinuityCheck::follows(const std::uint8_t* packet) const {
    const int step = has_payload(packet) ? 1 : 0;
    const int expected = (continuity_counter_of(last_->data()) + step) & kContinuityMask;
    return continuity_counter_of(packet) == expected;
}

bool ContinuityCheck::repeats(const std::uint8_t* packet) const {
    return has_payload(packet) && !repeated_ &&
           std::equal(last_->begin(), last_->end(), packet);
}
