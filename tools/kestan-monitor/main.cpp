#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <limits>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "dvb/nanoseconds.h"
#include "tools/kestan-monitor/monitor_report.h"
#include "tools/kestan-monitor/stream_limits.h"
#include "tools/kestan-monitor/stream_statistics.h"
#include "tools/receive/udp_receiver.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kOutsideLimits = 1;
constexpr int kCannotRun = 2;

constexpr double kShortestRunS = 0.1;
constexpr double kLongestRunS = 1e8;

constexpr const char* kFooter =
    "The report is shown when the duration is over, or on SIGINT or SIGTERM. On a "
    "terminal\n"
    "it is refreshed once a second until then.\n\n"
    "Exit status: 0; 1 when --check finds something outside the limits or nothing was\n"
    "received; 2 when it cannot receive or the command line is wrong.";

struct Options {
    std::string address;
    std::string interface;
    double duration_s = 0;
    bool json = false;
    bool check = false;
};

volatile std::sig_atomic_t stop_requested = 0;

void stop_on_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { stop_requested = 1; };  // no SA_RESTART: waits end
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// The report on a terminal, refreshed in place; what was on the screen comes back.
class Screen {
public:
    Screen() { std::cout << "\x1b[?1049h\x1b[?25l\x1b[?7l" << std::flush; }
    ~Screen() { std::cout << "\x1b[?7h\x1b[?25h\x1b[?1049l" << std::flush; }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // Shows as many lines as fit.
    static void show(const std::string& report) {
        std::string text = "\x1b[H";
        int room = height();
        for (std::size_t at = 0; at < report.size();) {
            const std::size_t end = report.find('\n', at);
            text += "\x1b[K";  // before the line: after a full one it would erase its end
            if (--room == 0 && end + 1 < report.size()) {
                text += "… more than the screen holds: it is in the report";
                break;
            }
            text += report.substr(at, end - at) + (room > 0 ? "\r\n" : "");
            at = end + 1;
        }
        std::cout << text << (room > 0 ? "\x1b[J" : "") << std::flush;
    }

private:
    static int height() {
        winsize size{};
        const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
        return is_known && size.ws_row > 0 ? size.ws_row : 24;
    }
};

StreamFigures figures_of(const StreamStatistics& statistics, const UdpReceiver& receiver,
                         std::int64_t now) {
    StreamFigures figures = statistics.figures(now);
    figures.lost_datagrams = receiver.lost();
    return figures;
}

// Receives until the end and returns the figures then.
StreamFigures measure(const Options& options, UdpReceiver& receiver, Screen* screen) {
    StreamStatistics statistics;
    StreamFigures shown;
    std::int64_t now = steady_now_ns();
    std::int64_t refresh = now + kNsPerSecond;
    const std::int64_t end =
        options.duration_s > 0
            ? now + static_cast<std::int64_t>(options.duration_s * kNsPerSecond)
            : std::numeric_limits<std::int64_t>::max();
    while (stop_requested == 0 && now < end) {
        receiver.receive(std::min(refresh, end) - now,
                         [&](std::int64_t arrival, const std::uint8_t* data,
                             std::size_t size) { statistics.push(arrival, data, size); });
        now = steady_now_ns();
        if (now < refresh) continue;
        refresh += kNsPerSecond;
        if (screen == nullptr) continue;
        StreamFigures figures = figures_of(statistics, receiver, now);
        Screen::show(text_report(options.address, with_rates_since(figures, shown)));
        shown = std::move(figures);
    }
    return figures_of(statistics, receiver, now);
}

int run(const Options& options) {
    UdpReceiver receiver(parse_endpoint(options.address), options.interface);
    stop_on_signals();
    std::optional<Screen> screen;
    if (!options.json && isatty(STDOUT_FILENO) != 0) screen.emplace();
    const StreamFigures figures = measure(options, receiver, screen ? &*screen : nullptr);
    screen.reset();
    std::cout << (options.json ? json_report(options.address, figures)
                               : text_report(options.address, figures))
              << std::flush;
    const bool in_order = find_violations(figures).empty();
    return options.check && !in_order ? kOutsideLimits : kInOrder;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Measures the DVB tables in a UDP transport stream.", "kestan-monitor");
    app.footer(kFooter);
    app.add_option("ADDRESS:PORT", options.address,
                   "Address of this machine or multicast group, such as 226.0.0.10:1234")
        ->required();
    app.add_option("-i,--interface", options.interface, "Network interface it comes by");
    app.add_option("-d,--duration", options.duration_s,
                   "Seconds to measure (default: no end)")
        ->check(CLI::Range(kShortestRunS, kLongestRunS));
    app.add_flag("--json", options.json, "Report in JSON, at the end");
    app.add_flag("--check", options.check,
                 "Exit status 1 for a stream outside the limits");
    try {
        app.parse(argc, argv);
        return run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kInOrder : kCannotRun;
    } catch (const std::exception& error) {
        std::cerr << "kestan-monitor: " << error.what() << '\n';
        return kCannotRun;
    }
}
