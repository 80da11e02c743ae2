#ifndef KESTAN_MUX_MUXED_STREAM_H
#define KESTAN_MUX_MUXED_STREAM_H

#include <cstdint>
#include <cstring>

#include <boost/intrusive/list_hook.hpp>

#include "dvb/ts_packet.h"

// A source of transport packets that the muxer polls. The base of all kinds of streams.
//
// muxer_add registers a stream, the muxer polls it, and muxer_remove unregisters it. It
// may then be registered again. The owner destroys only an unregistered stream: the list
// hook asserts this.
//
// Threads: next_packet runs on the pacing loop's thread with the muxer's mutex held.
// Everything else runs on the control thread. Each kind of stream has a mutex that guards
// its packets. next_packet takes it after the muxer's, so a thread that holds a stream's
// mutex must not call muxer_add or muxer_remove.
class muxed_stream : public boost::intrusive::list_base_hook<> {
public:
    muxed_stream(const muxed_stream&) = delete;
    muxed_stream& operator=(const muxed_stream&) = delete;
    virtual ~muxed_stream() = default;

    // If a packet is due, writes it to `dst` (kTsPacketSize bytes) and returns true. If
    // not, returns false and leaves `dst` as it is. `slot_time_ns` is the time of the
    // packet slot that `dst` fills. Throws std::system_error if the mutex cannot be
    // locked.
    virtual bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) = 0;

protected:
    explicit muxed_stream(std::uint16_t stream_pid) : pid(stream_pid) {}

    // Copies a packet to `dst` and renumbers it: the counter continues across cyclic
    // replay and new versions of a table (ISO/IEC 13818-1, 2.4.3.3). The stream's first
    // packet keeps the counter that it has.
    void hand_out(const void* stored_packet, std::uint8_t* dst) noexcept {
        const auto* const packet = static_cast<const std::uint8_t*>(stored_packet);
        const std::uint8_t header = packet[3];
        std::memcpy(dst, packet, kTsPacketSize);
        if (cc == CC_NONE) {
            cc = continuity_counter_of(packet);
            return;
        }
        if (!has_payload(packet)) return;
        cc = static_cast<std::uint8_t>(cc + 1) & kContinuityMask;
        dst[3] = static_cast<std::uint8_t>((header & ~kContinuityMask) | cc);
    }

private:
    static constexpr std::uint8_t CC_NONE = 16;  // nothing has been handed out yet

    // The PID of the packets, which already carry it.
    [[maybe_unused]] std::uint16_t pid;
    std::uint8_t cc = CC_NONE;  // continuity_counter of the packet handed out last
    [[maybe_unused]] std::uint8_t reserved = 1;
};

#endif
