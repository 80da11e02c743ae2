#include "tools/service/diagnostics.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
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

}  // namespace

std::string level_prefix(const std::ostream& to, Severity severity) {
    // By Severity: those of an error, a warning and an information.
    constexpr std::array levels{"<3>", "<4>", "<6>"};
    const int fd = &to == &std::cout ? STDOUT_FILENO : STDERR_FILENO;
    return is_the_journals(fd) ? levels[static_cast<std::size_t>(severity)] : "";
}

void complain(Severity severity, const std::string& line) {
    std::cerr << level_prefix(std::cerr, severity) + line + '\n';
}

void warn(const std::string& line) {
    complain(Severity::kWarning, "warning: " + line);
}
