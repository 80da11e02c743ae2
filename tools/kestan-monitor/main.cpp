#include <unistd.h>

#include <csignal>
#include <iostream>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>

#include "tools/kestan-monitor/monitor.h"
#include "tools/kestan-monitor/options.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_report.h"
#include "tools/service/program.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kOutsideLimits = 1;
constexpr int kCannotRun = 2;

volatile std::sig_atomic_t reload_requested = 0;

// Returns what is not 0 when a signal has ended the run.
const volatile std::sig_atomic_t& handle_signals(bool reads_again) {
    const auto& stop_requested = stop_on({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    struct sigaction action {};
    action.sa_handler = [](int) { reload_requested = 1; };
    if (reads_again) sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = [](int) {};  // a resized terminal is drawn again at once
    sigaction(SIGWINCH, &action, nullptr);
    // A file that grows too large is an error of write().
    std::signal(SIGXFSZ, SIG_IGN);
    return stop_requested;
}

// A terminal that is closed ends the run with SIGHUP.
bool has_terminal() {
    return isatty(STDIN_FILENO) != 0 || isatty(STDOUT_FILENO) != 0 ||
           isatty(STDERR_FILENO) != 0;
}

int run(const Options& options) {
    // Before the handlers: reading a pipe waits for its writer, and a signal then ends
    // the program.
    std::optional<Multiplex> expected;
    if (!options.expected.empty()) {
        expected = read_expected_tables(options, FileKind::kRegularOrPipe);
        if (!expected) return kCannotRun;
    }
    const auto& stop_requested = handle_signals(expected && !has_terminal());
    Monitor monitor(options, std::move(expected));
    monitor.run(stop_requested, reload_requested);
    const Report report = monitor.report();
    write_report(std::cout, options.json ? json_report(report) : text_report(report));
    if (monitor.has_lost_output()) return kCannotRun;
    const bool in_order = report.stream.faults().is_in_order();
    return options.check && !in_order ? kOutsideLimits : kInOrder;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Measures the DVB tables in a UDP transport stream.", "kestan-monitor");
    add_options(app, options);
    return run_program(app, argc, argv, kCannotRun, [&] { return run(options); });
}
