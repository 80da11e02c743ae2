#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_REPETITION_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_REPETITION_H

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/series.h"

// Measures how often and how evenly the sections of one table come.
//
// Each section_number has its own timer: a table repeats as often as its rarest
// section. Times are nanoseconds of the steady clock; the time of a section is the
// arrival of its last byte. One thread.
class Repetition {
public:
    // Logs each wait that is longer than the table's limit, at the latest when the wait
    // ends or at the next call of advance().
    Repetition(std::uint16_t pid, const TableKey& table, FaultLog& faults)
        : pid_(pid), table_(table), faults_(faults) {}

    // Expects the table from `now` on: waits for its sections count.
    void expect(std::int64_t now);

    // Stops expecting the table. If it still comes, it is measured, but it is never
    // overdue.
    void withdraw(std::int64_t now);

    // Takes a section. Returns the time since the previous one with its number, if there
    // was one. Ignores a section_number above the last one.
    std::optional<std::int64_t> add(std::uint8_t section_number,
                                    std::uint8_t last_section_number, std::int64_t now);

    // Advances the time to `now`: no other section came before it.
    void advance(std::int64_t now);

    [[nodiscard]] bool expected() const { return expected_; }

    // Returns the intervals from each section to the next one with its number.
    [[nodiscard]] const Spread& intervals() const { return intervals_; }
    [[nodiscard]] std::int64_t last_interval() const { return last_interval_; }

    // Returns the differences between consecutive intervals of sections with the same
    // number: the jitter of arrival. It is 0 for a constant period.
    [[nodiscard]] const Spread& jitter() const { return jitter_; }

    // Returns the greatest interval, or the longest wait if it is longer. A wait is one
    // for a section of an expected table that came for the first time, or that has not
    // come again by the last advance().
    [[nodiscard]] std::int64_t longest() const { return longest_; }

private:
    struct Timer {
        std::int64_t since = 0;
        bool has_come = false;
        bool is_overdue = false;
        std::optional<std::int64_t> last_interval = std::nullopt;
    };

    void look_at(Timer& timer, std::int64_t now);

    std::uint16_t pid_;
    TableKey table_;
    FaultLog& faults_;
    bool expected_ = false;
    std::vector<Timer> timers_;  // by section_number; empty until one is known of
    Spread intervals_;
    Spread jitter_;
    std::int64_t last_interval_ = 0;
    std::int64_t longest_ = 0;
};

#endif
