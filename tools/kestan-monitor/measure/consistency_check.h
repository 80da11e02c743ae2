#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CONSISTENCY_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_CONSISTENCY_CHECK_H

#include <cstdint>
#include <map>
#include <optional>

#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/pid_record.h"
#include "tools/model/multiplex.h"

// Finds tables that contradict each other. The rules are those of kestan-control check.
//
// The tables of a new set come on air one after the other. So a contradiction counts only
// if it lasts for longer than the repetition limit of the SDT. Times are nanoseconds of
// the steady clock. One thread.
class ConsistencyCheck {
public:
    explicit ConsistencyCheck(FaultLog& faults) : faults_(faults) {}

    // Takes the tables that are on air from `now` on, in place of the previous ones.
    void replace(const Multiplex& tables, std::int64_t now);

    // Logs each contradiction that has lasted for long enough by `now`. Logs it once
    // while it lasts. A PCR PID without a stream is none while a PCR comes there.
    void advance(std::int64_t now, const PidRecords& pids);

private:
    struct Contradiction {
        std::int64_t since;
        std::optional<std::uint16_t> pcr_pid;  // that is a PID without a stream
        bool is_logged = false;
    };

    FaultLog& faults_;
    std::map<Fault, Contradiction> contradictions_;
};

#endif
