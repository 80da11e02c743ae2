#ifndef KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H
#define KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H

#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/on_air.h"
#include "tools/kestan-control/state_file.h"
#include "tools/model/multiplex.h"

// Sends tables to Kestan and remembers what Kestan plays, also for the next process.
// Writes one line for each table to standard output: what, version, result.
//
// Other clients may change what Kestan plays in between: what they leave there stays, and
// is not seen. One thread.
class TableSender {
public:
    // Reads what Kestan can have of earlier processes from the state file `name`, and
    // keeps it there. If `forgets` or if the file cannot be read, Kestan can have any
    // table. `effect` says what a process without the file does. It must outlive the
    // object.
    TableSender(const char* name, const ControlAddress& address, const char* effect,
                bool forgets = false);

    // Sends all tables and withdraws none. Returns the tables that Kestan rejected.
    // Stops a service first if it can be on another PID: Kestan would keep it there. If
    // `stops_all`, does so for each service. Throws ControlError; then the tables whose
    // lines are written are in place.
    std::vector<std::string> send(ControlConnection& kestan, const Multiplex& tables,
                                  bool stops_all);

    // Makes Kestan play these tables and no others of this program, and returns the
    // tables that Kestan rejected. Sends those that differ from what Kestan is known to
    // play, over what is there; a PMT that moves to another PID is stopped first. Clears
    // all tables first if Kestan can have any table. Throws ControlError; then it is
    // unknown which of the tables Kestan has.
    std::vector<std::string> make_play(ControlConnection& kestan,
                                       const Multiplex& tables);

    // Kestan has started, and has no tables.
    void kestan_has_started();

    // Returns whether it is known that Kestan plays these tables and no others.
    [[nodiscard]] bool plays(const Multiplex& tables) const {
        return played_ == tables && on_air_ == OnAir(tables);
    }

private:
    // Records that each of the tables can be on air from now on.
    void expect(const Multiplex& tables);

    // Records what is on air. The file must never lack a table that Kestan has: so one
    // that cannot be replaced is removed. Warns at the first of several failures.
    void keep(const OnAir& on_air);

    StateFile file_;
    const char* effect_;
    bool has_failed_ = false;      // to write the file
    std::optional<OnAir> on_air_;  // at least what Kestan has
    Multiplex played_;             // those of them whose content is known
};

#endif
