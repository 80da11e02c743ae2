#include "tools/kestan-monitor/screen/terminal_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/kestan-monitor/report/text_format.h"

namespace {

constexpr std::size_t kLeastNameWidth = 14;
constexpr std::size_t kVerdictLine = 3;  // of stream_lines()

constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kPlain = "\x1b[0m";

// Returns the rows for the last faults: at most a third of what the PIDs and the faults
// share.
std::size_t event_rows(std::size_t rows, std::size_t events) {
    if (events == 0) return 0;
    return std::min(events + 2, std::max<std::size_t>(rows / 3, 3));
}

void append(Lines& to, const Lines& lines) {
    to.insert(to.end(), lines.begin(), lines.end());
}

}  // namespace

void TerminalView::on_key(Key key) {
    if (key == Key::kUp) top_ -= std::min<std::size_t>(top_, 1);
    if (key == Key::kDown) top_ += 1;
    if (key == Key::kPageUp) top_ -= std::min(top_, page_);
    if (key == Key::kPageDown) top_ += page_;
}

// Returns the lines from top_ on that fit in `rows`. If PIDs are left below, the last
// line counts them.
Lines TerminalView::visible_pids(const Report& report, std::size_t rows,
                                 std::size_t name_width) {
    Lines lines;
    std::vector<std::size_t> ends;  // of each PID's lines
    for (const auto& [number, pid] : report.stream.pids()) {
        append(lines, pid_lines(report, pid, name_width));
        if (ends.empty() || lines.size() > ends.back()) ends.push_back(lines.size());
    }
    page_ = lines.size() > rows && rows > 0 ? rows - 1 : rows;
    top_ = std::min(top_, lines.size() - std::min(lines.size(), page_));
    const std::size_t bottom = std::min(top_ + page_, lines.size());
    Lines shown(lines.begin() + static_cast<std::ptrdiff_t>(top_),
                lines.begin() + static_cast<std::ptrdiff_t>(bottom));
    const auto below = ends.end() - std::upper_bound(ends.begin(), ends.end(), bottom);
    if (lines.size() > rows && rows > 0)
        shown.push_back(below > 0 ? fmt::format("… {} more PIDs (j, k)", below)
                                  : "(k: up)");
    return shown;
}

Lines TerminalView::lay_out(const Report& report, const TerminalSize& size) {
    Lines lines = report.stream.datagrams() == 0 ? silence_lines(report)
                                                 : whole_report(report, size);
    lines.resize(std::min(lines.size(), size.rows));
    for (std::string& line : lines) line = cut(line, size.columns);
    if (has_colour_ && lines.size() > kVerdictLine) {
        const bool is_good = report.stream.faults().is_in_order();
        std::string& verdict_line = lines[kVerdictLine];
        verdict_line = (is_good ? kGreen : kRed) + verdict_line + kPlain;
    }
    return lines;
}

Lines TerminalView::whole_report(const Report& report, const TerminalSize& size) {
    const FaultLog& faults = report.stream.faults();
    const std::size_t room =
        size.columns > kColumnsWidth ? size.columns - kColumnsWidth : 0;
    const std::size_t width =
        name_width(report, std::clamp(room, kLeastNameWidth, kGreatestNameWidth));

    Lines lines = stream_lines(report);
    append(lines, heading_lines(width));
    const std::size_t left = size.rows - std::min(size.rows, lines.size());
    const std::size_t for_events = event_rows(left, faults.last_events().size());
    append(lines, visible_pids(report, left - std::min(left, for_events), width));
    if (for_events > 0) {
        append(lines, {"", "Last outside the limits:"});
        append(lines, event_lines(faults));
    }
    return lines;
}
