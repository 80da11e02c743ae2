#ifndef KESTAN_APP_CMD_OPTIONS_H
#define KESTAN_APP_CMD_OPTIONS_H

#include <cstdint>
#include <string>

// The settings of the command line. Written once, before anything else, and then only
// read.
struct cmd_options {
    std::int32_t set = 0;         // instance number, 0 or 1
    bool console = false;         // log to the console too
    std::int32_t level = 5;       // highest log level printed, 3 to 7
    std::string outip;            // forced destination, "address/port"; empty: none
    std::string outif;            // forced output interface; empty: none
    std::int32_t bitrate = 1000;  // kbit/s, 100 to 100000
    std::int32_t ttl = 1;         // of the datagrams, 1 to 255
    bool version = false;         // print the version and exit
    bool help = false;            // print the usage and exit
    std::string prog_name;        // as invoked
};

// Reads the command line. Throws a std::string, the message for the user, if a number is
// out of range. Ends the process in print_usage after -h, an unknown option or a missing
// argument.
[[nodiscard]] cmd_options parse_options(int argc, char** argv);

// Prints the usage on standard output if `status` is 0, and else a hint on standard
// error. Exits with `status`.
[[noreturn]] void print_usage(const cmd_options& options, int status);

#endif
