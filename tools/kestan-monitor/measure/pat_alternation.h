#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PAT_ALTERNATION_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_PAT_ALTERNATION_H

#include <cstdint>
#include <optional>
#include <utility>

#include "dvb/nanoseconds.h"
#include "dvb/table_kind.h"
#include "tools/kestan-monitor/measure/fault_log.h"

// Finds a PAT that goes back to the transport_stream_id and version that it had a short
// time ago: two PATs are in the stream. One thread.
class PatAlternation {
public:
    explicit PatAlternation(FaultLog& faults) : faults_(faults) {}

    // Takes a section of a PAT that is in force and came at `now`, in nanoseconds.
    void add(std::uint16_t transport_stream_id, std::uint8_t version, std::int64_t now) {
        const Identity identity{transport_stream_id, version};
        if (current_ == identity) return;
        if (previous_ == identity && now - replaced_at_ <= kAlternationNs)
            faults_.add({FaultKind::kPatAlternates, kPatPid, TableKey{TableKind::kPat}},
                        now);
        previous_ = std::exchange(current_, identity);
        replaced_at_ = now;
    }

private:
    // If two PATs are in the stream and each keeps its repetition limit, they alternate
    // faster than this. An operator who restores the previous tables is slower.
    static constexpr std::int64_t kAlternationNs = kNsPerSecond;

    using Identity = std::pair<std::uint16_t, std::uint8_t>;

    FaultLog& faults_;
    std::optional<Identity> current_;
    std::optional<Identity> previous_;
    std::int64_t replaced_at_ = 0;  // previous_, by current_
};

#endif
