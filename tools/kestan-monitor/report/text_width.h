#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_WIDTH_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_TEXT_WIDTH_H

#include <cstddef>
#include <string>

// Widths of UTF-8 text in columns of a terminal. A byte that is not UTF-8 takes one
// column.

[[nodiscard]] std::size_t text_width(const std::string& text);

// Returns as much of `text` as fits in `columns`, with "…" at its end if a part is
// missing.
[[nodiscard]] std::string cut(const std::string& text, std::size_t columns);

// Returns `text`, cut or filled with blanks to exactly `columns`.
[[nodiscard]] std::string padded(const std::string& text, std::size_t columns);

#endif
