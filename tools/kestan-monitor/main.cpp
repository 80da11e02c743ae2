#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "tools/kestan-monitor/expected_tables.h"
#include "tools/kestan-monitor/monitor.h"
#include "tools/kestan-monitor/options.h"
#include "tools/kestan-monitor/report/json_report.h"
#include "tools/kestan-monitor/report/text_report.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kOutsideLimits = 1;
constexpr int kCannotRun = 2;

Requests requests;

// Without SA_RESTART, so that a signal ends the wait for datagrams.
void handle_signals(bool reads_again) {
    struct sigaction action {};
    action.sa_handler = [](int) { requests.stop = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(signal, &action, nullptr);
    }
    action.sa_handler = [](int) { requests.reload = 1; };
    if (reads_again) sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = [](int) {};  // a resized terminal is drawn again at once
    sigaction(SIGWINCH, &action, nullptr);
    // A file that grows too large is an error of write().
    std::signal(SIGXFSZ, SIG_IGN);
}

int run(const Options& options) {
    // First: a pipe without a writer waits for one, until a signal ends the program.
    std::optional<Multiplex> expected;
    if (!options.expected.empty()) {
        expected = read_expected_tables(options.expected, FileKind::kRegularOrPipe);
        if (!expected) return kCannotRun;
    }
    handle_signals(expected && !has_display(options));
    Monitor monitor(options, std::move(expected));
    monitor.run(requests);
    const Report report = monitor.report();
    std::cout << (options.json ? json_report(report) : text_report(report)) << std::flush;
    if (!std::cout)
        throw std::runtime_error("cannot write the report: is the disk full?");
    if (monitor.has_lost_output()) return kCannotRun;
    const bool in_order = report.stream.faults().is_in_order();
    return options.check && !in_order ? kOutsideLimits : kInOrder;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Measures the DVB tables in a UDP transport stream.", "kestan-monitor");
    add_options(app, options);
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
