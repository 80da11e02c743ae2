#ifndef KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H
#define KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/kestan-control/control_connection.h"
#include "tools/model/multiplex.h"

// Sends tables to Kestan and remembers what Kestan plays.
//
// What Kestan plays is known from the return of make_play() until forget(). Other clients
// may change it in between, and so may a restart of Kestan. One thread.
class TableSender {
public:
    // Writes one line for each table that it sends: what, version, result. `report` must
    // outlive the sender.
    explicit TableSender(std::ostream& report) : report_(report) {}

    // Sends all tables and withdraws none. Returns the tables that Kestan rejected.
    // Throws ControlError; then the tables whose lines are written are in place.
    std::vector<std::string> send(ControlConnection& kestan, const Multiplex& tables);

    // Makes Kestan play these tables and no others, and returns the tables that Kestan
    // rejected. If it is known what Kestan plays, only the differences are sent; a PMT
    // that moves to another PID is stopped first. Otherwise all tables are cleared first.
    // Throws ControlError; then it is unknown what Kestan plays.
    std::vector<std::string> make_play(ControlConnection& kestan,
                                       const Multiplex& tables);

    // Makes it unknown what Kestan plays.
    void forget() { is_known_ = false; }

    // Returns whether it is known that Kestan plays these tables and no others.
    [[nodiscard]] bool plays(const Multiplex& tables) const {
        return is_known_ && played_ == tables;
    }

private:
    // Sends those of the tables that differ from what Kestan plays.
    std::vector<std::string> send_differences(ControlConnection& kestan,
                                              const Multiplex& tables);
    void clear(ControlConnection& kestan);
    void withdraw(ControlConnection& kestan, const Multiplex& tables);

    std::ostream& report_;
    Multiplex played_;
    bool is_known_ = false;
};

#endif
