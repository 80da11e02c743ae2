#ifndef KESTAN_TOOLS_KESTAN_MONITOR_CONSISTENCY_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_CONSISTENCY_CHECK_H

#include <cstdint>
#include <map>

#include "tools/kestan-monitor/fault_log.h"
#include "tools/multiplex.h"

// Finds tables that contradict each other, by the rules that kestan-control checks a file
// with.
//
// A new set of tables comes on air little by little: a contradiction counts if it lasts
// for longer than the SDT may be away. Times are nanoseconds of the steady clock. One
// thread.
class ConsistencyCheck {
public:
    explicit ConsistencyCheck(FaultLog& faults) : faults_(faults) {}

    // These are the tables on air at `now`, where others have been before.
    void replace(const Multiplex& tables, std::int64_t now);

    // Logs what has contradicted itself for long enough by `now`, once for as long as it
    // lasts.
    void advance(std::int64_t now);

private:
    struct Contradiction {
        std::int64_t since;
        bool is_logged = false;
    };

    FaultLog& faults_;
    std::map<Fault, Contradiction> contradictions_;
};

#endif
