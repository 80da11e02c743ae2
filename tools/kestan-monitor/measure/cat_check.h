#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CAT_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CAT_CHECK_H

#include <cstdint>
#include <optional>

#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "tools/kestan-monitor/measure/fault_log.h"

// Finds streams that are scrambled while no CAT comes (ETSI TR 101 290, 2.6). Times are
// nanoseconds of the steady clock. One thread.
class CatCheck {
public:
    explicit CatCheck(FaultLog& faults) : faults_(faults) {}

    // Takes a scrambled packet of a stream that a PMT announces.
    void add_scrambled(std::int64_t now) {
        if (!waiting_since_) waiting_since_ = now;
        const std::int64_t wait = now - *waiting_since_;
        if (wait <= kLongestWaitNs) return;
        const Fault fault{FaultKind::kCatMissing, kCatPid};
        if (!is_logged_) faults_.add(fault, now, wait);
        is_logged_ = true;
        faults_.extend(fault, wait);
    }

    // Starts to wait again: a CAT has come, or the stream has come back.
    void restart() {
        waiting_since_.reset();
        is_logged_ = false;
    }

private:
    static constexpr std::int64_t kLongestWaitNs = 2 * kNsPerSecond;

    FaultLog& faults_;
    std::optional<std::int64_t> waiting_since_;
    bool is_logged_ = false;
};

#endif
