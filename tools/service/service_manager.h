#ifndef KESTAN_TOOLS_SERVICE_SERVICE_MANAGER_H
#define KESTAN_TOOLS_SERVICE_SERVICE_MANAGER_H

#include <chrono>
#include <string>

// Sends the state of this process, such as "READY=1" or "STATUS=…", to the service
// manager that started it, if one did: see sd_notify(3). The protocol is one datagram, so
// the program needs no library for it. A failure is ignored.
void notify_service_manager(const std::string& state);

// Returns how often the service manager expects "WATCHDOG=1" at least, or 0 if it does
// not.
[[nodiscard]] std::chrono::microseconds watchdog_time();

#endif
