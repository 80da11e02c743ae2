#ifndef KESTAN_FUZZ_MEMORY_FILE_H
#define KESTAN_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

// A file without a disk, for what can only read files.
class MemoryFile {
public:
    MemoryFile(const std::uint8_t* data, std::size_t size)
        : fd_(memfd_create("input", 0)) {
        if (write(fd_, data, size) != static_cast<ssize_t>(size)) {
            throw std::runtime_error("memfd");
        }
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::string path() const {
        return "/proc/self/fd/" + std::to_string(fd_);
    }

private:
    int fd_;
};

#endif
