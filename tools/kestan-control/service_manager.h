#ifndef KESTAN_TOOLS_KESTAN_CONTROL_SERVICE_MANAGER_H
#define KESTAN_TOOLS_KESTAN_CONTROL_SERVICE_MANAGER_H

#include <string>

// Tells the service manager that started this process, if one did, how the process is
// doing: lines such as "READY=1" or "STATUS=…", see sd_notify(3). The protocol is one
// datagram, so that the program needs no library for it. A failure is ignored.
void notify_service_manager(const std::string& state);

#endif
