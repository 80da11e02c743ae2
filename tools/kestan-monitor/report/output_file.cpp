#include "tools/kestan-monitor/report/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

std::ofstream opened(const std::string& path) {
    return std::ofstream(path, std::ios::binary | std::ios::trunc);
}

void require(bool is_good, const std::string& path) {
    if (!is_good)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace

void replace_file(const std::string& path, const std::string& text) {
    const std::string new_path = path + ".new";
    std::ofstream file = opened(new_path);
    file << text << std::flush;
    require(file.good(), new_path);
    file.close();
    require(std::rename(new_path.c_str(), path.c_str()) == 0, path);
}

PacketRecorder::PacketRecorder(const std::string& path)
    : path_(path), file_(opened(path)) {
    require(file_.good(), path_);
}

void PacketRecorder::write(const DatagramPackets& packets) {
    for (std::size_t i = 0; i < packets.count; ++i)
        file_.write(reinterpret_cast<const char*>(packets.packet(i)), kTsPacketSize);
}

void PacketRecorder::flush() {
    file_.flush();
    require(file_.good(), path_);
}
