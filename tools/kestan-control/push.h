#ifndef KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H
#define KESTAN_TOOLS_KESTAN_CONTROL_PUSH_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/kestan-control/control_connection.h"
#include "tools/multiplex.h"

// Sends every table and writes one line for each to `report`: what, version, result.
// Returns the tables that Kestan rejected. Raises ControlError; the tables of the lines
// written by then are in place.
std::vector<std::string> push_tables(ControlConnection& kestan,
                                     const Multiplex& multiplex, std::ostream& report);

// Withdraws what Kestan plays of `before` and `now` no longer has, or has a PMT of on
// another PID. Raises ControlError.
void withdraw_tables(ControlConnection& kestan, const Multiplex& before,
                     const Multiplex& now);

#endif
