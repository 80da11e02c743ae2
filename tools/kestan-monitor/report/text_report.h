#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_REPORT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_REPORT_H

#include <cstddef>
#include <string>
#include <vector>

#include "tools/kestan-monitor/report/report.h"

// Reports for people. Lines have no '\n' at their ends.
using Lines = std::vector<std::string>;

// The widths of a PID's line: its number, the name of its table, the counts of the PID,
// the figures of the table.
constexpr std::size_t kPidWidth = 8;
constexpr std::size_t kCountsWidth = 24;
constexpr std::size_t kTableWidth = 34;
constexpr std::size_t kColumnsWidth = kPidWidth + kCountsWidth + kTableWidth;

// Returns the width of the tables' names, at most `greatest`.
[[nodiscard]] std::size_t name_width(const Report& report, std::size_t greatest);
constexpr std::size_t kGreatestNameWidth = 40;

// Returns "Nothing is outside the limits.", or the numbers of faults and accepted ones.
[[nodiscard]] std::string verdict(const FaultLog& faults);

// Returns the lines to show before the first datagram, and at the end if none came.
[[nodiscard]] Lines silence_lines(const Report& report);

// Returns the lines with address, bit rate, verdict, datagrams, and the differences from
// files.
[[nodiscard]] Lines stream_lines(const Report& report);

// Returns the headings of the PIDs' columns; `name_width` is the width of the tables'
// names.
[[nodiscard]] Lines heading_lines(std::size_t name_width);

// Returns one line for a PID with its table, or one line for each table if several share
// the PID.
[[nodiscard]] Lines pid_lines(const Report& report, const PidRecord& pid,
                              std::size_t name_width);

// Returns a line for each fault with its count, the times of the first and the last, and
// its clause.
[[nodiscard]] Lines fault_lines(const FaultLog& faults);

// Returns the last events with their times, the latest one first.
[[nodiscard]] Lines event_lines(const FaultLog& faults);

// Returns the whole report in lines that end with '\n'.
[[nodiscard]] std::string text_report(const Report& report);

#endif
