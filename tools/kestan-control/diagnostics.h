#ifndef KESTAN_TOOLS_KESTAN_CONTROL_DIAGNOSTICS_H
#define KESTAN_TOOLS_KESTAN_CONTROL_DIAGNOSTICS_H

#include <iosfwd>
#include <string>

#include "tools/rules/finding.h"

// Returns what a line in `to`, standard output or standard error, begins with: the level
// as in sd-daemon(3) if the stream is the journal's, or else an empty text.
[[nodiscard]] std::string level_prefix(const std::ostream& to, Severity severity);

// Writes a line to standard error, in one piece: any thread may call this.
void complain(Severity severity, const std::string& line);

#endif
