#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_LOG_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_LOG_H

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <set>

#include "tools/kestan-monitor/measure/fault.h"

// Counts faults by kind and place, with the times of the first and the last.
//
// Memory is bounded: at most kMaxFaults different faults are kept, and the last kEvents
// events. Times are nanoseconds of the steady clock when they come in, and of the civil
// clock when they are read. One thread.
class FaultLog {
public:
    static constexpr std::size_t kMaxFaults = 20000;
    static constexpr std::size_t kEvents = 10;

    struct Record {
        std::uint64_t count = 0;
        std::int64_t first = 0;
        std::int64_t last = 0;

        // The greatest duration or difference in nanoseconds; 0 if the fault has none.
        std::int64_t worst = 0;
    };

    struct Event {
        std::int64_t time;
        Fault fault;
        std::int64_t value;

        // Of continuity errors that come with less than a second between them: they are
        // one event.
        std::uint64_t errors = 1;
        std::set<std::uint16_t> pids = {};
    };

    // Sets the number that converts a time of the steady clock to the civil time.
    void set_civil_minus_steady(std::int64_t ns) { civil_minus_steady_ = ns; }
    [[nodiscard]] std::int64_t to_civil(std::int64_t steady) const {
        return steady + civil_minus_steady_;
    }

    // Adds `count` occurrences of the fault at `time`. `value` is its duration or
    // difference, or 0 if it has none.
    void add(const Fault& fault, std::int64_t time, std::int64_t value = 0,
             std::uint64_t count = 1);

    // Updates the duration of a fault that has been added and still lasts.
    void extend(const Fault& fault, std::int64_t value);

    [[nodiscard]] std::uint64_t count(const Fault& fault) const;
    [[nodiscard]] std::uint64_t total() const { return total_; }
    [[nodiscard]] std::uint64_t total(FaultKind kind) const {
        return totals_.at(static_cast<std::size_t>(kind));
    }
    [[nodiscard]] const std::map<Fault, Record>& records() const { return records_; }

    // Returns the last events, the oldest one first.
    [[nodiscard]] const std::deque<Event>& last_events() const { return events_; }

private:
    void add_event(const Fault& fault, std::int64_t civil, std::int64_t value,
                   std::uint64_t count);

    std::int64_t civil_minus_steady_ = 0;
    std::uint64_t total_ = 0;
    std::array<std::uint64_t, kFaultKinds> totals_{};
    std::map<Fault, Record> records_;
    std::deque<Event> events_;
};

#endif
