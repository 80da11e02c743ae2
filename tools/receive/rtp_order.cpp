#include "tools/receive/rtp_order.h"

#include <utility>

namespace {

constexpr int kMaxMisorder = 100;  // RFC 3550, A.1

}  // namespace

bool RtpOrder::is_late(const std::uint8_t* header) {
    const auto number = static_cast<std::uint16_t>(header[2] << 8 | header[3]);
    const std::uint32_t source = static_cast<std::uint32_t>(header[8]) << 24 |
                                 static_cast<std::uint32_t>(header[9]) << 16 |
                                 static_cast<std::uint32_t>(header[10]) << 8 | header[11];
    const auto after_far_behind = std::exchange(after_far_behind_, std::nullopt);
    if (highest_ && highest_->source == source) {
        const auto ahead = static_cast<std::int16_t>(number - highest_->number);
        const bool is_far_behind = ahead <= -kMaxMisorder;
        const bool has_restarted = is_far_behind && after_far_behind == number;
        if (is_far_behind) after_far_behind_ = static_cast<std::uint16_t>(number + 1);
        if (ahead <= 0 && !has_restarted) return true;
    }
    highest_ = {source, number};
    return false;
}
