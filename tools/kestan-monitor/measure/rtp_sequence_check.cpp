#include "tools/kestan-monitor/measure/rtp_sequence_check.h"

#include <algorithm>
#include <iterator>

namespace {

// A greater jump is one of the sender's numbers (RFC 3550, A.1).
constexpr int kMaxDropout = 3000;

}  // namespace

// Only numbers that are not far behind can still come.
void RtpSequenceCheck::add_lost(int count) {
    const std::uint16_t number = order_.number();
    for (int i = std::min(count, RtpOrder::kMaxMisorder); i > 0; --i)
        missing_.insert(static_cast<std::uint16_t>(number - i));
    for (auto at = missing_.begin(); at != missing_.end();) {
        const auto behind = static_cast<std::uint16_t>(number - *at);
        at = behind > RtpOrder::kMaxMisorder ? missing_.erase(at) : std::next(at);
    }
}

void RtpSequenceCheck::add(const std::uint8_t* header, std::int64_t now) {
    const Fault fault{FaultKind::kRtpSequence};
    const std::optional<int> ahead = order_.push(header);
    if (!ahead || *ahead > kMaxDropout) missing_.clear();
    if (!ahead) return;
    if (*ahead > 1 && *ahead <= kMaxDropout) {
        faults_.add(fault, now, 0, static_cast<std::uint64_t>(*ahead - 1));
        add_lost(*ahead - 1);
        return;
    }
    const bool was_missing = *ahead <= 0 && missing_.erase(order_.number()) != 0;
    if (*ahead != 1 && !was_missing) faults_.add(fault, now);
}
