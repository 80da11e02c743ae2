#include "tools/service/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

void notify_service_manager(const std::string& state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = path == nullptr ? "" : path;
    if (name.empty() || name.size() >= sizeof address.sun_path) return;
    name.copy(address.sun_path, name.size());
    if (name[0] == '@') address.sun_path[0] = '\0';  // an abstract socket
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    const auto size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
    close(fd);
}

std::chrono::microseconds watchdog_time() {
    const char* const time = std::getenv("WATCHDOG_USEC");
    return std::chrono::microseconds(time == nullptr ? 0 : std::atoll(time));
}
