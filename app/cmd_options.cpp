#include "app/cmd_options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>

namespace {

constexpr const char* kShortOptions = "s:cl:O:I:b:t:vh";

constexpr option kLongOptions[] = {
    {"set", required_argument, nullptr, 's'},
    {"console", no_argument, nullptr, 'c'},
    {"level", required_argument, nullptr, 'l'},
    {"outip", required_argument, nullptr, 'O'},
    {"outif", required_argument, nullptr, 'I'},
    {"bitrate", required_argument, nullptr, 'b'},
    {"ttl", required_argument, nullptr, 't'},
    {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char* kUsage =
    " [ -sclOIbtvh ] \n"
    "Lumora PSI/SI Muxing Application. \n"
    "Options:\n"
    "   [ -s ] [ --set ] (type=INTEGER, range=0...1, default=0)\n"
    "          Kestan instance number. To get automatically working ports.\n"
    "   [ -c ] [ --console ] (type=FLAG)\n"
    "          Log to console. Default: not print to console.\n"
    "   [ -l ] [ --level ] (type=INTEGER, range=3...7, default=5)\n"
    "          Max log level value to print:\n"
    "           3 == ERROR\n"
    "           4 == WARNING\n"
    "           5 == NOTICE\n"
    "           6 == INFORMATION\n"
    "           7 == DEBUG\n"
    "   [ -O ] [ --outip ] (type=STRING)\n"
    "          IP address/port for output. \n"
    "           Overrrides default FPGA PSI/SI IP/port.\n"
    "           Example: 226.0.0.10/1234 ethInt\n"
    "   [ -I ] [ --outif ] (type=STRING)\n"
    "          Network Interface for output. \n"
    "           Overrrides default interface (ethInt.100).\n"
    "   [ -b ] [ --bitrate ] (type=INTEGER, range=100...100000, default=1000)\n"
    "          Output Bitrate in Kbps. Set to test alternative bitrates\n"
    "   [ -t ] [ --ttl ] (type=INTEGER, range=1...255, default=1)\n"
    "          TTL value.\n"
    "   [ -v ] [ --version ] (type=FLAG)\n"
    "          Program version and exit.\n"
    "   [ -h ] [ --help ] (type=FLAG)\n"
    "          Display this help and exit.\n";

// Clamps to 32 bits.
std::int32_t parse_integer(const char* argument) {
    using limits = std::numeric_limits<std::int32_t>;
    const long value = std::strtol(argument, nullptr, 10);
    return static_cast<std::int32_t>(
        std::clamp<long>(value, limits::min(), limits::max()));
}

void parse_in_range(std::int32_t& field, const std::string& name, std::int32_t lowest,
                    std::int32_t highest) {
    field = parse_integer(optarg);
    const std::string error = "parameter range error: " + name + " must be ";
    if (field < lowest) throw error + ">= " + std::to_string(lowest);
    if (field > highest) throw error + "<= " + std::to_string(highest);
}

}  // namespace

cmd_options parse_options(int argc, char** argv) {
    cmd_options options;
    options.prog_name = argv[0];
    optind = 0;
    for (;;) {
        switch (getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) {
            case -1:
                return options;
            case 's':
                parse_in_range(options.set, "set", 0, 1);
                break;
            case 'c':
                options.console = true;
                break;
            case 'l':
                parse_in_range(options.level, "level", 3, 7);
                break;
            case 'O':
                options.outip = optarg;
                break;
            case 'I':
                options.outif = optarg;
                break;
            case 'b':
                parse_in_range(options.bitrate, "bitrate", 100, 100000);
                break;
            case 't':
                parse_in_range(options.ttl, "ttl", 1, 255);
                break;
            case 'v':
                options.version = true;
                break;
            case 'h':
                options.help = true;
                print_usage(options, 0);
            default:
                print_usage(options, 1);
        }
    }
}

void print_usage(const cmd_options& options, int status) {
    if (status == 0) {
        std::cout << "usage: " << options.prog_name << kUsage;
    } else {
        std::cerr << "Try `" << options.prog_name << " --help' for more information.\n";
    }
    exit(status);
}
