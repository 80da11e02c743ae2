#ifndef KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H
#define KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H

#include "tools/files/table_files.h"
#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/state_file.h"
#include "tools/kestan-control/version_history.h"

// Chooses the version_numbers under which the tables of the files are sent. Prints which
// changes receivers would ignore.
//
// Keeps a history of versions for the next process. Warns if it cannot.
class OutgoingTables {
public:
    // Reads the history. If `raises`, the version of a table whose content has changed is
    // raised, and otherwise all versions stay as they are in the files.
    OutgoingTables(const ControlAddress& address, bool raises);

    // Returns the tables to send next.
    [[nodiscard]] Multiplex take(const JoinedFiles& files);

private:
    StateFile file_;
    bool raises_;
    VersionHistory history_;
};

#endif
