#include "tools/service/program.h"

#include <limits>
#include <ostream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "dvb/nanoseconds.h"
#include "tools/service/diagnostics.h"

namespace {

constexpr double kShortestRunS = 0.1;
constexpr double kLongestRunS = 1e8;

volatile std::sig_atomic_t stop_requested = 0;

}  // namespace

int run_program(CLI::App& app, int argc, char** argv, int if_it_throws,
                const std::function<int()>& run) {
    try {
        app.parse(argc, argv);
        return run();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageError;
    } catch (const std::exception& error) {
        complain(Severity::kError, app.get_name() + ": " + error.what());
        return if_it_throws;
    }
}

// Without SA_RESTART, so that a signal ends the waits.
const volatile std::sig_atomic_t& stop_on(std::initializer_list<int> signals) {
    struct sigaction action {};
    action.sa_handler = [](int) { stop_requested = 1; };
    for (const int signal : signals) sigaction(signal, &action, nullptr);
    return stop_requested;
}

void add_duration(CLI::App& app, std::optional<double>& seconds, const char* help) {
    app.add_option("-d,--duration", seconds, help)
        ->check(CLI::Range(kShortestRunS, kLongestRunS));
}

std::int64_t end_of_run(std::int64_t start, std::optional<double> seconds) {
    if (!seconds) return std::numeric_limits<std::int64_t>::max();
    return start + static_cast<std::int64_t>(*seconds * kNsPerSecond);
}

void write_report(std::ostream& to, const std::string& text) {
    to << text << std::flush;
    if (!to) throw std::runtime_error("cannot write the report: is the disk full?");
}
