#ifndef KESTAN_TOOLS_KESTAN_MONITOR_TEXT_WIDTH_H
#define KESTAN_TOOLS_KESTAN_MONITOR_TEXT_WIDTH_H

#include <cstddef>
#include <string>

// The columns of a terminal that UTF-8 text takes. A byte that is no UTF-8 takes one.

[[nodiscard]] std::size_t text_width(const std::string& text);

// As much of `text` as `columns` hold, with "…" at its end if that is not all.
[[nodiscard]] std::string cut(const std::string& text, std::size_t columns);

// `text`, cut or filled with blanks to just `columns`.
[[nodiscard]] std::string padded(const std::string& text, std::size_t columns);

#endif
