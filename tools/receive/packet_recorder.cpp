#include "tools/receive/packet_recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

constexpr std::size_t kBlock = 64U << 10U;
constexpr mode_t kMode = 0666;  // less the umask

}  // namespace

PacketRecorder::PacketRecorder(const std::string& path)
    : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY,
               kMode)) {
    if (fd_.get() < 0) throw std::system_error(errno, std::generic_category());
}

void PacketRecorder::write(const DatagramPackets& packets) {
    if (error_ != 0) return;
    for (std::size_t i = 0; i < packets.count; ++i) {
        const std::uint8_t* const packet = packets.packet(i);
        waiting_.insert(waiting_.end(), packet, packet + kTsPacketSize);
    }
    if (waiting_.size() >= kBlock) write_out();
}

void PacketRecorder::flush() {
    write_out();
    if (error_ != 0) throw std::system_error(error_, std::generic_category());
}

void PacketRecorder::write_out() {
    for (std::size_t at = 0; at < waiting_.size() && error_ == 0;) {
        const ssize_t written = ::write(fd_.get(), &waiting_[at], waiting_.size() - at);
        if (written < 0 && errno != EINTR) error_ = errno;
        if (written <= 0) continue;
        at += static_cast<std::size_t>(written);
        bytes_ += static_cast<std::uint64_t>(written);
    }
    waiting_.clear();
    if (error_ == 0 || bytes_ % kTsPacketSize == 0) return;
    bytes_ -= bytes_ % kTsPacketSize;
    if (ftruncate(fd_.get(), static_cast<off_t>(bytes_)) != 0)
        return;  // a device or a pipe
}
