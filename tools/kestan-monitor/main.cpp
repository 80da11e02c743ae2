#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "tools/kestan-monitor/monitor.h"
#include "tools/kestan-monitor/options.h"
#include "tools/kestan-monitor/report/json_report.h"
#include "tools/kestan-monitor/report/text_report.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kOutsideLimits = 1;
constexpr int kCannotRun = 2;

volatile std::sig_atomic_t stop_requested = 0;

// Without SA_RESTART, so that a signal ends the wait for datagrams.
void handle_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { stop_requested = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(signal, &action, nullptr);
    }
    action.sa_handler = [](int) {};  // a resized terminal is drawn again at once
    sigaction(SIGWINCH, &action, nullptr);
    // A file that grows too large is an error of write().
    std::signal(SIGXFSZ, SIG_IGN);
}

int run(const Options& options) {
    handle_signals();
    Monitor monitor(options);
    monitor.run(stop_requested);
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
