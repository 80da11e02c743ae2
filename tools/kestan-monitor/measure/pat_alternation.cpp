#include "tools/kestan-monitor/measure/pat_alternation.h"

#include "dvb/nanoseconds.h"

namespace {

// If two PATs are in the stream and each keeps its repetition limit, they alternate
// faster than this. An operator who restores the previous tables is slower.
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
