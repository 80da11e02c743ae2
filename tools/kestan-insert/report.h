#ifndef KESTAN_TOOLS_KESTAN_INSERT_REPORT_H
#define KESTAN_TOOLS_KESTAN_INSERT_REPORT_H

#include <cstdint>
#include <string>

#include "tools/kestan-insert/insertion_record.h"

// What a run has done, for the user.
struct Report {
    double duration_s = 0;
    InsertionRecord record;
    std::uint64_t input_lost_here = 0;  // datagrams that the kernel dropped
    std::uint64_t tables_lost_here = 0;
    std::uint64_t unsent = 0;  // datagrams that could not be sent

    // Returns whether both streams came and nothing was dropped or lost.
    [[nodiscard]] bool is_in_order() const;
};

[[nodiscard]] std::string text_report(const Report& report);
[[nodiscard]] std::string json_report(const Report& report);

// Returns one line about what has come since `before`.
[[nodiscard]] std::string progress_line(const Report& before, const Report& now);

#endif
