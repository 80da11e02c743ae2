#include "tools/kestan-monitor/report/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace {

void require(bool is_good, const std::string& path) {
    if (!is_good)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace

void replace_file(const std::string& path, const std::string& text) {
    const std::string new_path = path + ".new";
    std::ofstream file(new_path, std::ios::binary | std::ios::trunc);
    file << text << std::flush;
    require(file.good(), new_path);
    file.close();
    require(std::rename(new_path.c_str(), path.c_str()) == 0, path);
}
