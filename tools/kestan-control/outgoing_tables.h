#ifndef KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H
#define KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H

#include <string>

#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/table_files.h"
#include "tools/kestan-control/version_history.h"

// Chooses the version_numbers under which the tables of the files are sent. Prints which
// changes receivers would ignore.
class OutgoingTables {
public:
    // Keeps the versions of the files. Does not know tables that were sent before this
    // object was made.
    OutgoingTables() = default;

    // Raises the version of a table whose content has changed. Reads the history in
    // `path` and keeps it there, so that the next process knows the last version of each
    // table. Warns if it cannot.
    explicit OutgoingTables(std::string path);

    // Returns the tables to send next.
    [[nodiscard]] Multiplex take(const JoinedFiles& files);

private:
    std::string path_;  // of the history; empty if versions stay as they are
    VersionHistory history_;
};

// Returns the path of the instance's history: below $STATE_DIRECTORY, $XDG_STATE_HOME or
// ~/.local/state.
[[nodiscard]] std::string history_path(const ControlAddress& address);

#endif
