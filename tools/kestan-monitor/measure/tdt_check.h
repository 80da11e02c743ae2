#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TDT_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TDT_CHECK_H

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "dvb/nanoseconds.h"
#include "dvb/table_kind.h"
#include "tools/kestan-monitor/measure/fault_log.h"

// Checks that the time of a TDT advances and is right. Times are nanoseconds of the
// steady clock. One thread.
class TdtCheck {
public:
    explicit TdtCheck(FaultLog& faults) : faults_(faults) {}

    // Sets the greatest difference that is allowed from the civil clock. No value means
    // that there is no clock to compare with.
    void set_tolerance(std::optional<std::int64_t> ns) { tolerance_ = ns; }

    // Takes a TDT that came at `now` with the time `utc`, in seconds since 1970.
    void add(std::int64_t utc, std::int64_t now) {
        const auto report = [&](FaultKind kind, std::int64_t value) {
            faults_.add({kind, kTdtPid, TableKey{TableKind::kTdt}}, now, value);
        };
        if (utc_ && utc < *utc_)
            report(FaultKind::kTdtGoesBack, (*utc_ - utc) * kNsPerSecond);
        if (utc_ && utc == *utc_ && now - utc_since_ >= kLongestSecondNs)
            report(FaultKind::kTdtStandsStill, now - utc_since_);
        if (utc != utc_) utc_since_ = now;
        utc_ = utc;
        const std::int64_t offset = utc * kNsPerSecond - faults_.to_civil(now);
        if (tolerance_ && std::abs(offset) > *tolerance_)
            report(FaultKind::kTdtOffset, offset);
    }

private:
    // UTC_time has whole seconds, so it stays the same for just under one second, and a
    // TDT can be sent twice within that time.
    static constexpr std::int64_t kLongestSecondNs = 2 * kNsPerSecond;

    FaultLog& faults_;
    std::optional<std::int64_t> tolerance_;
    std::optional<std::int64_t> utc_;
    std::int64_t utc_since_ = 0;  // when utc_ came first
};

#endif
