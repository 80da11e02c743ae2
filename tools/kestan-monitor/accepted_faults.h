#ifndef KESTAN_TOOLS_KESTAN_MONITOR_ACCEPTED_FAULTS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_ACCEPTED_FAULTS_H

#include <string>
#include <vector>

#include "tools/kestan-monitor/measure/accepted_fault.h"

// Returns the faults that the user calls "CHECK" or "CHECK:PID", where CHECK is a check
// or a rule of the check `consistency`. Throws std::invalid_argument, with a message for
// the user, if there are none: `consistency` itself would accept what nobody knows yet.
[[nodiscard]] std::vector<AcceptedFault> accepted_faults(const std::string& text);

#endif
