#include "tools/kestan-monitor/measure/rtp_sequence_check.h"

#include <algorithm>
#include <utility>

namespace {

// RFC 3550, A.1. A greater jump is one of the sender's numbers.
constexpr int kMaxDropout = 3000;
constexpr int kMaxMisorder = 100;

}  // namespace

void RtpSequenceCheck::begin(std::uint32_t source, std::uint16_t number) {
    source_ = source;
    highest_ = number;
    missing_.clear();
    after_far_behind_.reset();
}

// Only numbers that are not far behind can still come.
void RtpSequenceCheck::add_lost(std::uint16_t first, int count) {
    for (int i = std::max(0, count - kMaxMisorder); i < count; ++i)
        missing_.insert(static_cast<std::uint16_t>(first + i));
    for (auto at = missing_.begin(); at != missing_.end();) {
        const auto behind = static_cast<std::uint16_t>(first + count - *at);
        at = behind > kMaxMisorder ? missing_.erase(at) : std::next(at);
    }
}

void RtpSequenceCheck::add(const std::uint8_t* header, std::int64_t now) {
    const auto number = static_cast<std::uint16_t>(header[2] << 8 | header[3]);
    const std::uint32_t source = static_cast<std::uint32_t>(header[8]) << 24 |
                                 static_cast<std::uint32_t>(header[9]) << 16 |
                                 static_cast<std::uint32_t>(header[10]) << 8 | header[11];
    if (source_ != source) {
        begin(source, number);
        return;
    }
    const Fault fault{FaultKind::kRtpSequence};
    const int ahead = static_cast<std::int16_t>(number - highest_);
    const auto after_far_behind = std::exchange(after_far_behind_, std::nullopt);
    if (ahead > kMaxDropout) {
        faults_.add(fault, now);
        begin(source, number);
        return;
    }
    if (ahead > 0) {
        const int lost = ahead - 1;
        if (lost > 0) faults_.add(fault, now, 0, static_cast<std::uint64_t>(lost));
        if (lost > 0) add_lost(static_cast<std::uint16_t>(highest_ + 1), lost);
        highest_ = number;
        return;
    }
    if (after_far_behind == number) {
        begin(source, number);
        return;
    }
    if (ahead <= -kMaxMisorder)
        after_far_behind_ = static_cast<std::uint16_t>(number + 1);
    if (missing_.erase(number) == 0) faults_.add(fault, now);
}
