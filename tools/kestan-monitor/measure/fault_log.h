#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_LOG_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_FAULT_LOG_H

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "tools/kestan-monitor/measure/fault.h"

// Counts faults by kind and place, with the times of the first and the last. Those that
// are accepted are counted, too, and also by themselves.
//
// Memory is bounded: at most kMaxFaults different faults are kept, and the last kEvents
// events. Times are nanoseconds of the steady clock when they come in, and of the civil
// clock when they are read. One thread.
class FaultLog {
public:
    static constexpr std::size_t kMaxFaults = 20000;
    static constexpr std::size_t kEvents = 10;

    struct Count {
        std::uint64_t total = 0;
        std::uint64_t accepted = 0;  // of them
    };

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

    // Accepts these faults. REQUIRES: none has been added yet.
    void accept(std::vector<AcceptedFault> faults) { accepted_ = std::move(faults); }
    [[nodiscard]] bool is_accepted(const Fault& fault) const;

    // Adds `count` occurrences of the fault at `time`. `value` is its duration or
    // difference, or 0 if it has none.
    void add(const Fault& fault, std::int64_t time, std::int64_t value = 0,
             std::uint64_t count = 1);

    // Updates the duration of a fault that has been added and still lasts.
    void extend(const Fault& fault, std::int64_t value);

    [[nodiscard]] std::uint64_t count(const Fault& fault) const;
    [[nodiscard]] const Count& all() const { return all_; }
    [[nodiscard]] const Count& all(FaultKind kind) const {
        return of_kind_.at(static_cast<std::size_t>(kind));
    }

    // Returns whether no fault has been added, or accepted ones alone.
    [[nodiscard]] bool is_in_order() const { return all_.total == all_.accepted; }

    // Returns when the last fault came that is not accepted. REQUIRES: !is_in_order().
    [[nodiscard]] std::int64_t last_time() const { return last_time_; }

    [[nodiscard]] const std::map<Fault, Record>& records() const { return records_; }

    // Returns the last events, the oldest one first.
    [[nodiscard]] const std::deque<Event>& last_events() const { return events_; }

private:
    void add_event(const Fault& fault, std::int64_t civil, std::int64_t value,
                   std::uint64_t count);

    std::int64_t civil_minus_steady_ = 0;
    std::vector<AcceptedFault> accepted_;
    Count all_;
    std::array<Count, kFaultKinds> of_kind_{};
    std::int64_t last_time_ = 0;
    std::map<Fault, Record> records_;
    std::deque<Event> events_;
};

#endif
