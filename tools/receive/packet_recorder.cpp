#include "tools/receive/packet_recorder.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

PacketRecorder::PacketRecorder(const std::string& path)
    : path_(path), file_(path, std::ios::binary | std::ios::trunc) {
    flush();
}

void PacketRecorder::write(const DatagramPackets& packets) {
    for (std::size_t i = 0; i < packets.count; ++i)
        file_.write(reinterpret_cast<const char*>(packets.packet(i)), kTsPacketSize);
}

void PacketRecorder::flush() {
    file_.flush();
    if (!file_.good())
        throw std::runtime_error("cannot write " + path_ + ": " + std::strerror(errno));
}
