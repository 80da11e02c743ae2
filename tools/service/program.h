#ifndef KESTAN_TOOLS_SERVICE_PROGRAM_H
#define KESTAN_TOOLS_SERVICE_PROGRAM_H

#include <csignal>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <optional>
#include <string>

namespace CLI {
class App;
}

// What the programs' main functions have in common. One thread.

// The exit status of a program whose command line is wrong.
constexpr int kUsageError = 2;

// Parses the command line, runs the program and returns its exit status: what `run`
// returns; `if_it_throws` after an exception, which it reports on standard error; or
// kUsageError.
int run_program(CLI::App& app, int argc, char** argv, int if_it_throws,
                const std::function<int()>& run);

// Makes the signals end the waits of the program. Returns what is not 0 when one of them
// has come.
const volatile std::sig_atomic_t& stop_on(std::initializer_list<int> signals);

// Adds the option --duration. The program then runs for `seconds`, or without an end.
void add_duration(CLI::App& app, std::optional<double>& seconds, const char* help);

// Returns when a run that begins at `start` ends, in nanoseconds.
[[nodiscard]] std::int64_t end_of_run(std::int64_t start, std::optional<double> seconds);

// Writes a text that is of no use in part. Throws std::runtime_error if it cannot.
void write_report(std::ostream& to, const std::string& text);

#endif
