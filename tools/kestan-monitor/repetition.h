#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPETITION_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPETITION_H

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/kestan-monitor/spread.h"

// How often the sections of one table come, and how evenly.
//
// Each section_number has a timer of its own: a table repeats as often as its rarest
// section. Times and durations are nanoseconds, of any clock that does not go back; the
// time of a section is the arrival of its last byte. One thread.
class Repetition {
public:
    struct Figures {
        // From each section to the next one with its number.
        Spread intervals;

        // How much an interval differs from the one before it, sections of one number
        // compared: the table's jitter of arrival. It is 0 for a table that comes with a
        // constant period.
        Spread jitter;

        // The greatest interval or, if longer, the longest wait for a section of an
        // expected table that had not come before, or has not come again.
        std::int64_t longest = 0;
    };

    // The table is to be there from `now` on: waiting for its sections counts.
    void expect(std::int64_t now);

    // The table is not expected any more; if it comes all the same, intervals alone
    // count.
    void withdraw(std::int64_t now);

    // A section has come. A section_number beyond the last is passed over.
    void add(std::uint8_t section_number, std::uint8_t last_section_number,
             std::int64_t now);

    [[nodiscard]] bool expected() const { return expected_; }
    [[nodiscard]] Figures figures(std::int64_t now) const;

private:
    struct Timer {
        std::int64_t since = 0;
        bool has_come = false;
        std::optional<std::int64_t> last_interval = std::nullopt;
    };

    [[nodiscard]] std::int64_t longest_wait(std::int64_t now) const;

    bool expected_ = false;
    std::vector<Timer> timers_;  // by section_number; empty until one is known of
    Figures figures_;
};

#endif
