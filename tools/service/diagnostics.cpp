#include "tools/service/diagnostics.h"

#include <sys/stat.h>
#include <unistd.h>

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

std::string level_prefix(const std::ostream& to, Severity severity) {
    const int fd = &to == &std::cout ? STDOUT_FILENO : STDERR_FILENO;
    return is_the_journals(fd) ? level_of(severity) : "";
}

void complain(Severity severity, const std::string& line) {
    std::cerr << level_prefix(std::cerr, severity) + line + '\n';
}

void warn(const std::string& line) {
    complain(Severity::kWarning, "warning: " + line);
}
