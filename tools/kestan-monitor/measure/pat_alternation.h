#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PAT_ALTERNATION_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PAT_ALTERNATION_H

#include <cstdint>
#include <optional>
#include <utility>

#include "tools/kestan-monitor/measure/fault_log.h"

// Finds a PAT that goes back to the transport_stream_id and version that it had a short
// time ago: two PATs are in the stream. One thread.
class PatAlternation {
public:
    explicit PatAlternation(FaultLog& faults) : faults_(faults) {}

    // Takes a section of a PAT that is in force and came at `now`, in nanoseconds.
    void add(const Fault& pat, std::uint16_t transport_stream_id, std::uint8_t version,
             std::int64_t now);

private:
    using Identity = std::pair<std::uint16_t, std::uint8_t>;

    FaultLog& faults_;
    std::optional<Identity> current_;
    std::optional<Identity> previous_;
    std::int64_t replaced_at_ = 0;  // previous_, by current_
};

#endif
