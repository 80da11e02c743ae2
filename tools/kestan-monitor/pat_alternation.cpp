#include "tools/kestan-monitor/pat_alternation.h"

#include "dvb/nanoseconds.h"

namespace {

// Two PATs that each keep their repetition limit alternate faster than this. An operator
// who goes back to the tables before does not.
constexpr std::int64_t kAlternationNs = kNsPerSecond;

}  // namespace

void PatAlternation::add(const Fault& pat, std::uint16_t transport_stream_id,
                         std::uint8_t version, std::int64_t now) {
    const Identity identity{transport_stream_id, version};
    if (current_ == identity) return;
    if (previous_ == identity && now - replaced_at_ <= kAlternationNs)
        faults_.add(pat, now);
    previous_ = current_;
    current_ = identity;
    replaced_at_ = now;
}
