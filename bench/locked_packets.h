#ifndef KESTAN_BENCH_LOCKED_PACKETS_H
#define KESTAN_BENCH_LOCKED_PACKETS_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dvb/ts_packet.h"

// The floor of what hands out packets: copies them in turn, each from memory of its own
// (as much as a stream or a sub-table takes), under an uncontended mutex.
class LockedPackets {
public:
    explicit LockedPackets(std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) {
            packets_.push_back(std::make_unique<Packet>());
        }
    }

    // One mutex for all packets.
    void copy_next(std::uint8_t* dst) {
        const std::lock_guard lock(mutex_);
        std::memcpy(dst, next().data.data(), kTsPacketSize);
    }

    // Each packet's own mutex.
    void copy_next_of_its_own(std::uint8_t* dst) {
        Packet& packet = next();
        const std::lock_guard lock(packet.mutex);
        std::memcpy(dst, packet.data.data(), kTsPacketSize);
    }

    // Takes every packet's mutex once.
    void lock_each() {
        for (const auto& packet : packets_) {
            const std::lock_guard lock(packet->mutex);
            ++packet->locked;
        }
    }

private:
    struct Packet {
        std::string data{std::string(kTsPacketSize, '\0')};
        std::uint64_t locked = 0;
        std::uint64_t rest[3] = {};
        std::mutex mutex;
    };

    Packet& next() {
        Packet& packet = *packets_[next_];
        next_ = next_ + 1 == packets_.size() ? 0 : next_ + 1;
        return packet;
    }

    std::vector<std::unique_ptr<Packet>> packets_;
    std::size_t next_ = 0;
    std::mutex mutex_;
};

#endif
