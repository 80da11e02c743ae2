#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "tools/kestan-insert/insertion.h"
#include "tools/kestan-insert/options.h"
#include "tools/kestan-insert/report.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kNotInOrder = 1;
constexpr int kCannotRun = 2;

volatile std::sig_atomic_t stop_requested = 0;

// Without SA_RESTART, so that a signal ends the waits.
void handle_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { stop_requested = 1; };
    for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
    // A closed pipe is an error of write().
    std::signal(SIGPIPE, SIG_IGN);
}

int run(const Options& options) {
    handle_signals();
    Insertion insertion(options);
    insertion.run(stop_requested);
    const Report report = insertion.report();
    std::ostream& to = options.output == kPipe ? std::cerr : std::cout;
    to << (options.json ? json_report(report) : text_report(report)) << std::flush;
    if (!to) throw std::runtime_error("cannot write the report: is the disk full?");
    return report.is_in_order() ? kInOrder : kNotInOrder;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Inserts Kestan's tables into an encoder's transport stream.",
                 "kestan-insert");
    add_options(app, options);
    try {
        app.parse(argc, argv);
        return run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kInOrder : kCannotRun;
    } catch (const std::exception& error) {
        std::cerr << "kestan-insert: " << error.what() << '\n';
        return kCannotRun;
    }
}
