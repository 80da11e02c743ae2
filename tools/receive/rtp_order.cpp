#include "tools/receive/rtp_order.h"

#include <bitstream/ietf/rtp.h>

#include <utility>

std::optional<int> RtpOrder::push(const std::uint8_t* header) {
    const std::uint32_t source = rtp_get_int_ssrc(header);
    number_ = rtp_get_seqnum(header);
    const int ahead = static_cast<std::int16_t>(number_ - highest_);
    const bool is_far_behind = ahead <= -kMaxMisorder;
    const bool has_restarted =
        std::exchange(after_far_behind_, std::nullopt) == number_ && is_far_behind;
    if (source_ != source || has_restarted) {
        source_ = source;
        highest_ = number_;
        return std::nullopt;
    }
    if (ahead > 0) highest_ = number_;
    if (is_far_behind) after_far_behind_ = static_cast<std::uint16_t>(number_ + 1);
    return ahead;
}
