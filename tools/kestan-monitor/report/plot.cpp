#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

#include "dvb/nanoseconds.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/svg.h"
#include "tools/kestan-monitor/report/text_format.h"
#include "tools/kestan-monitor/report/text_report.h"

namespace {

// Pixels.
constexpr double kWidth = 1240;
constexpr double kLeft = 260;
constexpr double kRight = 1050;
constexpr double kTop = 84;
constexpr double kGap = 10;
constexpr double kMargin = 20;
constexpr double kRateHeight = 90;
constexpr double kScaleHeight = 11;
constexpr double kTickDistance = 90;  // at least

constexpr std::size_t kNameColumns = 25;
constexpr std::size_t kMaxDots = 15000;  // in the whole picture

constexpr const char* kStyleSheet =
    "text{font:12px sans-serif;fill:#222}"
    ".title{font-size:16px;font-weight:bold}"
    ".small{font-size:11px;fill:#666}"
    ".scale{font-size:10px;fill:#666;text-anchor:end}"
    ".tick{font-size:11px;fill:#666;text-anchor:middle}"
    ".good{fill:#1a7f37}.bad{fill:#c0271d}"
    ".strip{fill:#f5f7fa}"
    ".grid{stroke:#e1e5eb}"
    ".limit{stroke:#c0271d;stroke-dasharray:5 3}"
    "path{fill:none}"
    ".dots{stroke:#1f5fa8;stroke-width:4;stroke-linecap:round}"
    ".late{stroke:#c0271d;stroke-width:6;stroke-linecap:round}"
    ".spread{stroke:#8db4dd;stroke-width:2}"
    ".latespread{stroke:#e38a84;stroke-width:2}"
    ".rate{stroke:#1f5fa8;stroke-width:1.2}";

double strip_height(std::size_t tables) {
    if (tables <= 8) return 64;
    return tables <= 24 ? 40 : 26;
}

// Returns the smallest of the usual distances between time marks that leaves enough room
// for them.
std::int64_t tick_ns(std::int64_t duration) {
    constexpr std::array<int, 18> seconds{1,    2,    5,     10,    15,    30,
                                          60,   120,  300,   600,   900,   1800,
                                          3600, 7200, 10800, 21600, 43200, 86400};
    const double most = (kRight - kLeft) / kTickDistance;
    for (const int each : seconds) {
        if (to_seconds(duration) / each <= most) return each * kNsPerSecond;
    }
    const auto days = static_cast<std::int64_t>(to_seconds(duration) / most / 86400) + 1;
    return days * 86400 * kNsPerSecond;
}

std::string duration_text(std::int64_t ns) {
    return ns >= 10 * kNsPerSecond ? fmt::format("{:.0f} s", to_seconds(ns))
                                   : fmt::format("{:.0f} ms", to_ms(ns));
}

// A stroke of length 0 shows only its round ends.
std::string dot(double x, double y) {
    return fmt::format("M{:.1f} {:.1f}h0", x, y);
}

// Draws one picture from the top down.
class Drawing {
public:
    explicit Drawing(const Report& report)
        : report_(report),
          start_(report.stream.series().start),
          duration_(std::max<std::int64_t>(report.stream.now() - start_, 1)) {}

    void title() {
        const FaultLog& faults = report_.stream.faults();
        svg_.text("title", kMargin, 30, report_.address);
        svg_.text(
            "", kMargin, 50,
            fmt::format("{}, {:.1f} s, {:.1f} kbit/s, at most {:.1f} kbit/s in any {} ms",
                        date_and_time(faults.to_civil(start_)), to_seconds(duration_),
                        report_.rates.stream / kBitsPerKbit,
                        report_.stream.peak_bit_rate() / kBitsPerKbit,
                        kPeakWindowNs / kNsPerMs));
        svg_.text(faults.is_in_order() ? "good" : "bad", kMargin, 70, verdict(faults));
        svg_.text("small", kRight + 12, 70, "min / mean / max, ms");
    }

    void table_strip(std::uint16_t pid, const TableKey& table,
                     const TimeSeries& intervals, double height, bool as_dots) {
        const auto limit = table_info(table.kind).repetition_limit_ns;
        const std::int64_t greatest = intervals.total().greatest;
        const std::int64_t top =
            limit ? std::max(*limit * 10 / 9, greatest * 20 / 19) : greatest * 2;
        begin_strip(height, static_cast<double>(top));
        name_table(pid, table, intervals.total(), height);
        if (limit) {
            svg_.line("limit", kLeft, y(*limit), kRight, y(*limit));
            const double lowest = bottom_ - kScaleHeight;  // above the 0
            svg_.text("scale", kLeft - 6, std::min(y(*limit) + 4, lowest),
                      duration_text(*limit));
        }
        if (as_dots) {
            dots(intervals, limit.value_or(top));
        } else {
            bins(intervals, limit.value_or(top));
        }
        y_ += height + kGap;
    }

    void rate_strip(const TimeSeries& packets) {
        const std::int64_t width = packets.bin_width();
        std::vector<double> rates;
        for (const Spread& bin : packets.bins()) {
            const auto start = static_cast<std::int64_t>(rates.size()) * width;
            rates.push_back(bit_rate(static_cast<std::uint64_t>(bin.sum),
                                     std::min(width, duration_ - start)) /
                            kBitsPerKbit);
        }
        const double greatest =
            rates.empty() ? 1 : *std::max_element(rates.begin(), rates.end());
        begin_strip(kRateHeight, std::max(greatest, 1.0) * 1.1);
        svg_.text("", kMargin, y_ + 16, "bit rate");
        svg_.text("small", kMargin, y_ + 31,
                  "kbit/s, over " + duration_text(width) + " each");
        svg_.text("scale", kLeft - 6, at_height(greatest) + 4,
                  fmt::format("{:.0f}", greatest));
        std::string path;
        const auto step_to = [&](double to_x, double to_y) {
            path += path.empty() ? fmt::format("M{:.1f} {:.1f}", to_x, to_y)
                                 : fmt::format("H{:.1f}V{:.1f}", to_x, to_y);
        };
        for (std::size_t i = 0; i < rates.size(); ++i)
            step_to(x(static_cast<std::int64_t>(i) * width), at_height(rates[i]));
        step_to(kRight, at_height(rates.empty() ? 0 : rates.back()));
        svg_.path("rate", path);
        y_ += kRateHeight;
    }

    // Draws the time marks below all strips and returns the picture.
    [[nodiscard]] std::string finished() {
        const std::size_t size = tick_ns(duration_) < 60 * kNsPerSecond ? 8 : 5;
        for_each_tick([&](std::int64_t at) {
            const std::int64_t civil = report_.stream.faults().to_civil(start_ + at);
            svg_.line("grid", x(at), y_, x(at), y_ + 5);
            svg_.text("tick", x(at), y_ + 18, time_of_day(civil).substr(0, size));
        });
        return svg_.finished(kWidth, y_ + 34, kStyleSheet);
    }

private:
    // Calls `visit` for each mark: full seconds, minutes or hours of local time.
    template <typename Visit>
    void for_each_tick(const Visit& visit) const {
        const std::int64_t civil = report_.stream.faults().to_civil(start_);
        const std::int64_t local = civil + utc_offset(civil);
        const std::int64_t each = tick_ns(duration_);
        for (std::int64_t at = each - local % each; at <= duration_; at += each)
            visit(at);
    }

    void begin_strip(double height, double top) {
        svg_.rectangle("strip", kLeft, y_, kRight - kLeft, height);
        svg_.text("scale", kLeft - 6, y_ + height, "0");
        for_each_tick(
            [&](std::int64_t at) { svg_.line("grid", x(at), y_, x(at), y_ + height); });
        bottom_ = y_ + height;
        pixels_per_unit_ = height / std::max(top, 1.0);
    }

    void name_table(std::uint16_t pid, const TableKey& table, const Spread& total,
                    double height) {
        const std::string* const name = report_.service_name(table);
        std::string first = pid_text(pid) + ' ' + table_info(table.kind).name;
        if (table.kind == TableKind::kPmt)
            first += ' ' + std::to_string(table.service_id);
        const bool has_room = height >= 36;
        if (name != nullptr && !has_room) first += ' ' + *name;
        svg_.text("", kMargin, y_ + (has_room ? 16 : 17), cut(first, kNameColumns));
        if (name != nullptr && has_room)
            svg_.text("small", kMargin, y_ + 31, cut(*name, kNameColumns));
        svg_.text("", kRight + 12, y_ + height / 2 + 4,
                  fmt::format("{:.1f} / {:.1f} / {:.1f}", to_ms(total.least),
                              to_ms(total.mean()), to_ms(total.greatest)));
    }

    // Draws each interval as a dot at its end. Those above the limit have another style.
    void dots(const TimeSeries& intervals, std::int64_t limit) {
        std::string in_time;
        std::string late;
        for (const auto& [time, interval] : intervals.points())
            (interval > limit ? late : in_time) += dot(x(time), y(interval));
        svg_.path("dots", in_time);
        svg_.path("late", late);
    }

    void bins(const TimeSeries& intervals, std::int64_t limit) {
        std::string in_time;
        std::string late;
        std::string means;
        std::int64_t middle = intervals.bin_width() / 2;
        for (const Spread& bin : intervals.bins()) {
            const double at = x(std::min(middle, duration_));
            middle += intervals.bin_width();
            if (bin.count == 0) continue;
            (bin.greatest > limit ? late : in_time) += fmt::format(
                "M{:.1f} {:.1f}V{:.1f}", at, y(bin.least) + 0.5, y(bin.greatest) - 0.5);
            means += dot(at, at_height(bin.mean()));
        }
        svg_.path("spread", in_time);
        svg_.path("latespread", late);
        svg_.path("dots", means);
    }

    [[nodiscard]] double x(std::int64_t time) const {
        return kLeft + (kRight - kLeft) * static_cast<double>(time) /
                           static_cast<double>(duration_);
    }
    [[nodiscard]] double at_height(double value) const {
        return bottom_ - value * pixels_per_unit_;
    }
    [[nodiscard]] double y(std::int64_t value) const {
        return at_height(static_cast<double>(value));
    }

    const Report& report_;
    std::int64_t start_;
    std::int64_t duration_;
    Svg svg_;
    double y_ = kTop;  // the top of the next strip
    double bottom_ = 0;
    double pixels_per_unit_ = 1;
};

}  // namespace

std::string plot_svg(const Report& report) {
    const StreamSeries& series = report.stream.series();
    std::size_t dots = 0;
    bool has_all_points = true;
    for (const auto& [table, intervals] : series.intervals) {
        dots += intervals.points().size();
        has_all_points = has_all_points && intervals.has_all_points();
    }
    Drawing drawing(report);
    drawing.title();
    for (const auto& [table, intervals] : series.intervals)
        drawing.table_strip(table.first, table.second, intervals,
                            strip_height(series.intervals.size()),
                            has_all_points && dots <= kMaxDots);
    drawing.rate_strip(series.packets);
    return drawing.finished();
}
