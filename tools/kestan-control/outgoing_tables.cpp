#include "tools/kestan-control/outgoing_tables.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <utility>

namespace {

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string state_directory() {
    std::string of_service = environment("STATE_DIRECTORY");
    if (!of_service.empty()) return of_service;
    const std::string of_user = environment("XDG_STATE_HOME");
    if (!of_user.empty()) return of_user + "/kestan-control";
    return environment("HOME") + "/.local/state/kestan-control";
}

void warn(const std::exception& error, const char* effect) {
    std::cerr << name_of(Severity::kWarning) << ": " << error.what() << ": " << effect
              << std::endl;
}

// `raises` is whether the version has been raised.
Finding finding_of(const UnchangedVersion& unchanged, bool raises) {
    Finding finding;
    finding.severity = raises ? Severity::kInformation : Severity::kWarning;
    finding.table = unchanged.table;
    finding.field = "version_number";
    finding.text =
        raises ? "the table has changed, version " + std::to_string(unchanged.sent) +
                     " goes out instead of " + std::to_string(unchanged.written)
               : "the table has changed and is still version " +
                     std::to_string(unchanged.written) +
                     ": receivers ignore the change; raise the version, or use "
                     "--bump-versions";
    return finding;
}

}  // namespace

// A history that is lost must not keep the tables off the air.
OutgoingTables::OutgoingTables(std::string path) : path_(std::move(path)) {
    try {
        history_ = VersionHistory::load(path_);
    } catch (const std::exception& error) {
        warn(error, "the first change of a table may go out under its old version");
    }
}

Multiplex OutgoingTables::take(const JoinedFiles& files) {
    const bool raises = !path_.empty();
    Multiplex tables = files.tables();
    for (const UnchangedVersion& unchanged : history_.take(tables, raises)) {
        std::ostream& to = raises ? std::cout : std::cerr;
        to << files.in_file(finding_of(unchanged, raises)).line() << std::endl;
    }
    // Saved before the tables are sent, so that a version that was sent is not given
    // again after a restart.
    try {
        if (raises) history_.save(path_);
    } catch (const std::exception& error) {
        warn(error, "after a restart, a change may go out under its old version");
    }
    return tables;
}

std::string history_path(const ControlAddress& address) {
    return state_directory() + "/versions-" + address.host + '-' +
           std::to_string(address.set) + ".json";
}
