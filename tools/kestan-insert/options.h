#ifndef KESTAN_TOOLS_KESTAN_INSERT_OPTIONS_H
#define KESTAN_TOOLS_KESTAN_INSERT_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// An address that names standard input or standard output.
constexpr const char* kPipe = "-";

struct Options {
    std::string input;  // ADDRESS:PORT or kPipe
    std::string tables;
    std::string output;  // as input
    std::string input_interface;
    std::string tables_interface;
    std::string output_interface;
    int ttl = 1;
    std::optional<double> duration_s;  // nullopt: no end
    bool json = false;
    std::vector<std::uint16_t> kept;  // PIDs
};

// Adds the options to `app`, which then writes them to `options`.
void add_options(CLI::App& app, Options& options);

#endif
