#ifndef KESTAN_TOOLS_SERVICE_SERVICE_MANAGER_H
#define KESTAN_TOOLS_SERVICE_SERVICE_MANAGER_H

#include <string>

// Sends the state of this process, such as "READY=1" or "STATUS=…", to the service
// manager that started it, if one did: see sd_notify(3). The protocol is one datagram, so
// the program needs no library for it. A failure is ignored.
void notify_service_manager(const std::string& state);

#endif
