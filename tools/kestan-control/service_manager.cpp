#include "tools/kestan-control/service_manager.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <iostream>

namespace {

bool is_the_journals(int fd) {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || fstat(fd, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

const char* level_of(Severity severity) {
    switch (severity) {
        case Severity::kError:
            return "<3>";
        case Severity::kWarning:
            return "<4>";
        case Severity::kInformation:
            break;
    }
    return "<6>";
}

}  // namespace

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

std::string level_prefix(const std::ostream& to, Severity severity) {
    const int fd = &to == &std::cout ? STDOUT_FILENO : STDERR_FILENO;
    return is_the_journals(fd) ? level_of(severity) : "";
}

void complain(Severity severity, const std::string& line) {
    std::cerr << level_prefix(std::cerr, severity) << line << std::endl;
}
