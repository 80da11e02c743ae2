#ifndef KESTAN_TOOLS_SERVICE_DIAGNOSTICS_H
#define KESTAN_TOOLS_SERVICE_DIAGNOSTICS_H

#include <iosfwd>
#include <string>

#include "tools/model/severity.h"

// Returns what a line in `to`, standard output or standard error, begins with: the level
// as in sd-daemon(3) if the stream is the journal's, or else an empty text.
[[nodiscard]] std::string level_prefix(const std::ostream& to, Severity severity);

// Write a line to standard error, in one piece: any thread may call them. warn() begins
// it with "warning: ".
void complain(Severity severity, const std::string& line);
void warn(const std::string& line);

#endif
