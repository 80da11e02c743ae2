#ifndef KESTAN_FUZZ_ROUND_TRIP_H
#define KESTAN_FUZZ_ROUND_TRIP_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/multiplex_file.h"
#include "tools/multiplex_json.h"

// The path of a file without a disk that holds these bytes, until the next call.
inline std::string memory_file(const void* data, std::size_t size) {
    static const int fd = memfd_create("input", 0);
    if (ftruncate(fd, 0) != 0 ||
        pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("memfd");
    }
    return "/proc/self/fd/" + std::to_string(fd);
}

// What kestan-control writes, it reads again as the same.
inline void check_round_trip(const Multiplex& multiplex) {
    const std::string text = multiplex_to_json(multiplex).dump(2);
    const bool is_same =
        read_multiplex_files({memory_file(text.data(), text.size())}) == multiplex;
    if (!is_same) throw std::logic_error("read differently: " + text);
}

#endif
