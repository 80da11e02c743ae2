#ifndef KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H
#define KESTAN_TOOLS_KESTAN_CONTROL_OUTGOING_TABLES_H

#include "tools/files/table_files.h"
#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/state_file.h"
#include "tools/model/multiplex.h"

// Chooses the version_numbers under which the tables of the files are sent. Prints which
// tables have changed under the same version: receivers ignore the change, since they
// read a table again when its version changes (ISO/IEC 13818-1, 2.4.4.5).
//
// Keeps the tables that went out last for the next process, and warns if it cannot. It
// keeps a table that is no longer sent, since receivers remember it too.
class OutgoingTables {
public:
    // Reads what is kept. If `raises`, the version of a table whose content has changed
    // is raised, and otherwise all versions stay as they are in the files.
    OutgoingTables(const ControlAddress& address, bool raises);

    // Returns the tables to send next. If versions are raised, a table that has changed
    // under the same version has the one after the last one sent, modulo 32, and another
    // one the version under which it was sent before.
    [[nodiscard]] Multiplex take(const JoinedFiles& files);

private:
    void read(const nlohmann::json& kept);

    StateFile file_;
    bool raises_;
    Multiplex written_;  // as in the files
    Multiplex sent_;     // the same tables, with the versions that went out
};

#endif
