#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TDT_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_TDT_CHECK_H

#include <cstdint>
#include <optional>

#include "tools/kestan-monitor/measure/fault_log.h"

// Checks that the time of a TDT advances and is right. Times are nanoseconds of the
// steady clock. One thread.
class TdtCheck {
public:
    explicit TdtCheck(FaultLog& faults) : faults_(faults) {}

    // Sets the greatest difference that is allowed from the civil clock. No value means
    // that there is no clock to compare with.
    void set_tolerance(std::optional<std::int64_t> ns) { tolerance_ = ns; }

    // Takes a TDT that came at `now` with the time `utc`, in seconds since 1970. `tdt` is
    // its place.
    void add(const FaultPlace& tdt, std::int64_t utc, std::int64_t now);

private:
    FaultLog& faults_;
    std::optional<std::int64_t> tolerance_;
    std::optional<std::int64_t> utc_;
    std::int64_t utc_since_ = 0;  // when utc_ came first
};

#endif
