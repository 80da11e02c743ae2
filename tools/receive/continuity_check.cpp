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
    repeated_ = last_ && repeats(packet);
    missing_ = last_ && !repeated_ ? missing_before(packet) : 0;
    std::copy_n(packet, kTsPacketSize, last_.emplace().begin());
    if (repeated_) return Continuity::kRepeat;
    if (missing_ == 0) return Continuity::kInOrder;
    return has_discontinuity_indicator(packet) ? Continuity::kExcused
                                               : Continuity::kBroken;
}

unsigned ContinuityCheck::missing_before(const std::uint8_t* packet) const {
    const unsigned step = has_payload(packet) ? 1 : 0;
    const unsigned last = continuity_counter_of(last_->data());
    return (continuity_counter_of(packet) - last - step) & kContinuityMask;
}

bool ContinuityCheck::repeats(const std::uint8_t* packet) const {
    return has_payload(packet) && !repeated_ &&
           std::equal(last_->begin(), last_->end(), packet);
}
