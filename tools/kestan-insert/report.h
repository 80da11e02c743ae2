#ifndef KESTAN_TOOLS_KESTAN_INSERT_REPORT_H
#define KESTAN_TOOLS_KESTAN_INSERT_REPORT_H

#include <string>

#include "tools/kestan-insert/insertion_record.h"

// Return what a run has done, for the user.
[[nodiscard]] std::string text_report(const InsertionRecord& record);
[[nodiscard]] std::string json_report(const InsertionRecord& record);

// Returns one line about what has come since `before`.
[[nodiscard]] std::string progress_line(const InsertionRecord& before,
                                        const InsertionRecord& now);

#endif
