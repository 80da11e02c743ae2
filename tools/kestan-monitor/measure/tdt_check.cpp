#include "tools/kestan-monitor/measure/tdt_check.h"

#include <cstdlib>

#include "dvb/nanoseconds.h"

namespace {

// UTC_time has whole seconds, so it stays the same for just under one second, and a TDT
// can be sent twice within that time.
constexpr std::int64_t kLongestSecondNs = 2 * kNsPerSecond;

}  // namespace

void TdtCheck::add(const FaultPlace& tdt, std::int64_t utc, std::int64_t now) {
    const auto report = [&](FaultKind kind, std::int64_t value) {
        faults_.add(tdt.fault(kind), now, value);
    };
    if (utc_ && utc < *utc_)
        report(FaultKind::kTdtGoesBack, (*utc_ - utc) * kNsPerSecond);
    if (utc_ && utc == *utc_ && now - utc_since_ >= kLongestSecondNs)
        report(FaultKind::kTdtStandsStill, now - utc_since_);
    if (!utc_ || utc != *utc_) utc_since_ = now;
    utc_ = utc;
    const std::int64_t offset = utc * kNsPerSecond - faults_.to_civil(now);
    if (tolerance_ && std::abs(offset) > *tolerance_)
        report(FaultKind::kTdtOffset, offset);
}
