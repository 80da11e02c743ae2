#include <csignal>
#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/kestan-insert/insertion.h"
#include "tools/kestan-insert/options.h"
#include "tools/kestan-insert/report.h"
#include "tools/service/program.h"

namespace {

constexpr int kInOrder = 0;
constexpr int kNotInOrder = 1;
constexpr int kCannotRun = 2;

int run(const Options& options) {
    const auto& stop_requested = stop_on({SIGINT, SIGTERM});
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is an error of write()
    Insertion insertion(options);
    insertion.run(stop_requested);
    const InsertionRecord record = insertion.record();
    write_report(options.output == kPipe ? std::cerr : std::cout,
                 options.json ? json_report(record) : text_report(record));
    return record.is_in_order() ? kInOrder : kNotInOrder;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Inserts Kestan's tables into an encoder's transport stream.",
                 "kestan-insert");
    add_options(app, options);
    return run_program(app, argc, argv, kCannotRun, [&] { return run(options); });
}
