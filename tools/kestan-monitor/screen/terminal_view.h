#ifndef KESTAN_TOOLS_KESTAN_MONITOR_SCREEN_TERMINAL_VIEW_H
#define KESTAN_TOOLS_KESTAN_MONITOR_SCREEN_TERMINAL_VIEW_H

#include <cstddef>

#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_report.h"
#include "tools/kestan-monitor/screen/terminal.h"

// Lays a report out for a terminal: the stream and the verdict, the PIDs, and the last
// faults. If there are too many PIDs, it shows a part of them. One thread.
class TerminalView {
public:
    explicit TerminalView(bool has_colour) : has_colour_(has_colour) {}

    // Scrolls the PIDs. Key::kQuit is ignored.
    void on_key(Key key);

    // Returns at most `size.rows` lines, none wider than `size.columns`.
    [[nodiscard]] Lines lay_out(const Report& report, const TerminalSize& size);

private:
    [[nodiscard]] Lines whole_report(const Report& report, const TerminalSize& size);
    [[nodiscard]] Lines visible_pids(const Report& report, std::size_t rows,
                                     std::size_t name_width);

    bool has_colour_;
    std::size_t top_ = 0;   // the first line of the PIDs that is shown
    std::size_t page_ = 1;  // lines of the PIDs that were shown
};

#endif
