#ifndef KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H
#define KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H

#include <string>

#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/table_files.h"
#include "tools/kestan-control/version_history.h"

// Gives the tables of the files the versions under which they go out, and says which
// changes receivers would not see.
class OutgoingTables {
public:
    // Versions stay as they are written. Tables sent before this object was made are not
    // known.
    OutgoingTables() = default;

    // Raises versions where it must. Reads the history in `path` and keeps it there, so
    // that the last version of a table is known in the next life too. Warns if it cannot.
    explicit OutgoingTables(std::string path);

    // The tables to send next.
    [[nodiscard]] Multiplex take(const JoinedFiles& files);

private:
    std::string path_;  // of the history; empty if versions stay as they are
    VersionHistory history_;
};

// Where the history of the instance is kept: below $STATE_DIRECTORY, $XDG_STATE_HOME or
// ~/.local/state.
[[nodiscard]] std::string history_path(const ControlAddress& address);

#endif
