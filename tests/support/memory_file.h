#ifndef KESTAN_TESTS_SUPPORT_MEMORY_FILE_H
#define KESTAN_TESTS_SUPPORT_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

// Returns the path of a file in memory with these bytes. The file lasts until the next
// call.
inline std::string memory_file(std::string_view bytes) {
    static const int fd = memfd_create("input", 0);
    if (ftruncate(fd, 0) != 0 ||
        pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("memfd");
    }
    return "/proc/self/fd/" + std::to_string(fd);
}

#endif
