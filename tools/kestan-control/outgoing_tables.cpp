#include "tools/kestan-control/outgoing_tables.h"

#include <exception>
#include <iostream>
#include <string>

#include "tools/kestan-control/check.h"
#include "tools/service/diagnostics.h"

namespace {

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
OutgoingTables::OutgoingTables(const ControlAddress& address, bool raises)
    : file_("versions", address), raises_(raises) {
    if (raises && !file_.keeps()) {
        warn(
            "no directory to keep the versions in: set XDG_STATE_HOME, or changes may go "
            "out under their old version");
    }
    try {
        history_ = file_.load(VersionHistory::from_json).value_or(VersionHistory());
    } catch (const std::exception& error) {
        warn(std::string(error.what()) +
             ": the first change of a table may go out under its old version");
    }
}

Multiplex OutgoingTables::take(const JoinedFiles& files) {
    Multiplex tables = files.tables();
    for (const UnchangedVersion& unchanged : history_.take(tables, raises_)) {
        const FileFinding finding = files.in_file(finding_of(unchanged, raises_));
        print_findings(raises_ ? std::cout : std::cerr, {finding},
                       /*with_information=*/true);
    }
    // Saved before the tables are sent, so that a version that was sent is not given
    // again after a restart.
    try {
        file_.save(history_.to_json());
    } catch (const std::exception& error) {
        warn(std::string(error.what()) +
             ": after a restart, a change may go out under its old version");
    }
    return tables;
}
