#include <iostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <thrift/TOutput.h>

#include "dvb/psi_si.h"
#include "tools/files/table_files.h"
#include "tools/json/compact_json.h"
#include "tools/json/multiplex_json.h"
#include "tools/json/number_text.h"
#include "tools/json/shown_text.h"
#include "tools/kestan-control/check.h"
#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/control_process.h"
#include "tools/kestan-control/outgoing_tables.h"
#include "tools/kestan-control/push.h"
#include "tools/receive/table_import.h"
#include "tools/service/diagnostics.h"
#include "tools/service/program.h"
#include "tools/service/service_manager.h"

// kestan-control: a control process in one command. Exit status 0 when all was done, 1
// when something was not (a rejected table, a mistake in a file, no connection), 2 for a
// mistake on the command line.

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;

using Service = ControlConnection::Service;

struct Settings {
    ControlAddress address;
    std::vector<std::string> files;
    CheckSettings check;
    bool raises_versions = false;
    bool clears = false;     // serve: all tables first
    bool stops_all = false;  // push: each service first
    std::string capture;
    int service_id = 0;
    int pid = 0;
    int status = kDone;
};

int push(const Settings& settings) {
    const TableFiles files(settings.files, FileKind::kRegularOrPipe);
    const auto joined = tables_to_send(files, settings.check);
    if (!joined) {
        complain(Severity::kError, "nothing is sent");
        return kFailed;
    }
    ControlConnection kestan(settings.address);
    // Kestan serves one client at a time: another push waits here, and then reads what
    // this one has left in the state files.
    kestan.wait_for_turn();
    const Multiplex tables =
        OutgoingTables(settings.address, settings.raises_versions).take(*joined);
    TableSender sender("pushed", settings.address,
                       "without it, a service whose PID changes stays on the old PID");
    const std::vector<std::string> rejected =
        sender.send(kestan, tables, settings.stops_all);
    for (const std::string& what : rejected) {
        complain(Severity::kError, "kestan rejected the " + what +
                                       ": its log says why; what it played before stays");
    }
    std::cout << bit_rate_line(tables) << std::endl;
    return rejected.empty() ? kDone : kFailed;
}

int check(const Settings& settings) {
    const TableFiles files(settings.files, FileKind::kRegularOrPipe);
    return report_check(files, settings.check) ? kDone : kFailed;
}

int serve(const Settings& settings) {
    CheckSettings check = settings.check;
    check.of_doubts = Severity::kWarning;
    try {
        ControlProcess(settings.address, settings.files, check, settings.raises_versions,
                       settings.clears)
            .run();
        return kDone;
    } catch (const std::exception& error) {
        notify_service_manager(std::string("STATUS=has failed: ") + error.what());
        throw;
    }
}

// Prints what was found. Returns whether every PMT that the capture's PAT announces was
// found.
bool report_import(const std::string& path, const TableImport& file) {
    const Multiplex& found = file.tables;
    const char* const unit = file.sections != 0 ? "section" : "packet";
    std::cerr << path << ": " << file.packets + file.sections << ' ' << unit << "s: ";
    for_each_single_table([&](TableKind kind, auto member) {
        std::cerr << (found.*member ? "" : "no ") << table_info(kind).full_name << ", ";
    });
    std::cerr << found.pmts.size() << " PMTs\n";
    if (file.is_cut) std::cerr << path << ": ends in the middle of a " << unit << '\n';
    if (file.stray_bytes != 0) {
        std::cerr << path << ": passed over " << file.stray_bytes
                  << " bytes that are no whole " << unit << "s\n";
    }
    if (file.homeless_pmts != 0) {
        std::cerr << path << ": passed over " << file.homeless_pmts
                  << " sections of PMTs whose service is not in the PAT\n";
    }
    if (!found.pat) return true;
    bool is_whole = true;
    for (const auto& program : found.pat->programs) {
        if (program.program_number == 0) continue;  // announces the network PID
        if (find_pmt(found.pmts, program.program_number) != nullptr) continue;
        std::cerr << path << ": the PAT has service " << program.program_number
                  << ", but its PMT on PID " << pid_text(program.pid)
                  << " is not in the capture: make a longer one\n";
        is_whole = false;
    }
    return is_whole;
}

int import(const std::string& capture) {
    const std::string path = shown_path(capture);
    const auto fail = [&](const std::string& reason) {
        std::cerr << path << ": " << reason << '\n';
        return kFailed;
    };
    TableImport file;
    try {
        file = import_tables(capture);
    } catch (const std::system_error& error) {
        return fail("cannot be read: " + error.code().message());
    }
    if (file.packets == 0 && file.sections == 0)
        return fail("no transport-stream packets and no sections: is it a capture?");
    const bool is_whole = report_import(path, file);
    if (table_count(file.tables) == 0)
        return fail("no complete table: capture at least one second");
    constexpr std::size_t width = 200;  // holds a stream with its descriptors
    std::cout << compact_json(multiplex_to_json(file.tables), width) << std::endl;
    if (std::cout) return is_whole ? kDone : kFailed;
    std::cerr << "cannot write the JSON: is the disk full?\n";
    return kFailed;
}

// Accepts a number from 0 to `highest`, decimal or "0x…".
CLI::Validator number_up_to(std::int64_t highest) {
    return {[highest](std::string& text) {
                const auto number = parse_argument(text);
                if (!number || *number > highest) {
                    return text + " is not a number from 0 to " +
                           std::to_string(highest) + ", decimal or as in 0x1F";
                }
                text = std::to_string(*number);
                return std::string();
            },
            "NUMBER"};
}

void add_options(CLI::App& app, Settings& settings) {
    app.add_option("--host", settings.address.host, "Host that kestan runs on")
        ->capture_default_str();
    app.add_option("--set", settings.address.set,
                   "Instance number of kestan, its option -s")
        ->check(CLI::IsMember({0, 1}))
        ->capture_default_str();
    app.add_option("--timeout", settings.address.timeout_s,
                   "Seconds to wait for a connection and for each answer")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    app.set_version_flag("--version", "kestan-control " KESTAN_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
}

template <typename Call>
void call(const Settings& settings, const char* method, Call make_call) {
    ControlConnection kestan(settings.address);
    kestan.wait_for_turn();
    kestan.call(method, make_call);
}

// Adds a command that reads tables.
CLI::App* add_table_command(CLI::App& app, Settings& settings, const char* name,
                            int (*run)(const Settings&), const char* help) {
    CLI::App* const command = app.add_subcommand(name, help);
    command
        ->add_option(
            "FILE", settings.files,
            "JSON files of tables; a directory stands for all *.json in it, - for "
            "standard input")
        ->required();
    command
        ->add_option("--bitrate", settings.check.bitrate_kbps,
                     "Report an error if the tables need more than this, in kbit/s")
        ->check(CLI::Range(1, 1000000));
    command->add_flag("--force", settings.check.is_forced,
                      "Send the tables in spite of errors that the check finds");
    command->add_flag("--bump-versions", settings.raises_versions,
                      "Give a table that has changed the next version_number, so that "
                      "receivers read it again");
    command->callback([&settings, run] { settings.status = run(settings); });
    return command;
}

void add_table_commands(CLI::App& app, Settings& settings) {
    CLI::App* const push_command = add_table_command(
        app, settings, "push", push,
        "Check and send the tables in the files; prints what, version and result of "
        "each");
    push_command->add_flag(
        "--move", settings.stops_all,
        "Stop each service before its PMT is sent, so that it moves to "
        "the PID in the file");
    CLI::App* const serve_command = add_table_command(
        app, settings, "serve", serve,
        "Keep the tables in the files on air, and no others: send them now, after each "
        "start of kestan, and after SIGHUP, which reads the files again");
    CLI::App* const check_command = add_table_command(
        app, settings, "check", check,
        "Say what is wrong with the tables in the files, without kestan");
    for (CLI::App* const command : {serve_command, check_command}) {
        command->add_flag(
            "--clear", settings.clears,
            "Withdraw all tables of kestan first, also those of other clients");
    }
}

void add_commands(CLI::App& app, Settings& settings) {
    add_table_commands(app, settings);
    app.add_subcommand("clear", "Withdraw every table")->callback([&] {
        call(settings, "ClearAllTables",
             [](Service& kestan) { kestan.ClearAllTables(); });
    });
    app.add_subcommand("clear-cat", "Withdraw the CAT")->callback([&] {
        call(settings, "ClearCAT", [](Service& kestan) { kestan.ClearCAT(); });
    });

    CLI::App* const stop =
        app.add_subcommand("stop-pmt", "Withdraw the PMT of a service");
    stop->add_option("SERVICE_ID", settings.service_id, "The service's id")
        ->required()
        ->transform(number_up_to(0xFFFF));
    stop->add_option("PID", settings.pid, "The PID that carries the PMT")
        ->required()
        ->transform(number_up_to(kMaxPid));
    stop->callback([&] {
        call(settings, "StopPMT", [&](Service& kestan) {
            kestan.StopPMT(static_cast<std::int16_t>(settings.service_id),
                           static_cast<std::int16_t>(settings.pid));
        });
    });

    CLI::App* const import_command =
        app.add_subcommand("import",
                           "Write the JSON of the tables in a transport-stream file or "
                           "a file of sections");
    import_command
        ->add_option("CAPTURE", settings.capture, "The file; - is standard input")
        ->required();
    import_command->callback([&] { settings.status = import(settings.capture); });
}

}  // namespace

int main(int argc, char** argv) {
    // Discards Thrift's messages: each failure is reported.
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});
    CLI::App app("Drives kestan, the PSI/SI muxer, as its control process.",
                 "kestan-control");
    Settings settings;
    add_options(app, settings);
    add_commands(app, settings);
    return run_program(app, argc, argv, kFailed, [&] { return settings.status; });
}
