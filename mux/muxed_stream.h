#ifndef KESTAN_MUX_MUXED_STREAM_H
#define KESTAN_MUX_MUXED_STREAM_H

#include <cstdint>
#include <cstring>

#include <boost/intrusive/list_hook.hpp>

#include "dvb/ts_packet.h"

// A source of transport packets that the muxer polls; the base of every kind of stream.
//
// A stream is made unlinked, registered with muxer_add, polled while it is registered,
// unregistered with muxer_remove, and only then destroyed by its owner: the list hook
// asserts that it is not linked any more. It may be registered again after that.
//
// Threads: next_packet runs on the pacing loop's thread with the muxer's mutex held;
// everything else runs on the control thread. Each kind of stream guards its packets with
// a mutex of its own, which next_packet takes after the muxer's: whoever holds a stream's
// mutex never calls muxer_add or muxer_remove.
class muxed_stream : public boost::intrusive::list_base_hook<> {
public:
    muxed_stream(const muxed_stream&) = delete;
    muxed_stream& operator=(const muxed_stream&) = delete;
    virtual ~muxed_stream() = default;

    // Writes the packet that is due, exactly kTsPacketSize bytes, to `dst` and returns
    // true; or returns false, with nothing consumed, when none is due. `slot_time_ns` is
    // the time of the packet slot that `dst` fills. A mutex that cannot be locked raises
    // std::system_error.
    virtual bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) = 0;

protected:
    explicit muxed_stream(std::uint16_t stream_pid) : pid(stream_pid) {}

    // Copies a packet to `dst` and renumbers it, so that the counter runs on across
    // cyclic replay and new versions of a table (ISO/IEC 13818-1, 2.4.3.3). The very
    // first packet keeps its own counter.
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

    // The PID of the packets; what goes on the wire is written in the packets already.
    [[maybe_unused]] std::uint16_t pid;
    std::uint8_t cc = CC_NONE;  // continuity_counter of the packet handed out last
    [[maybe_unused]] std::uint8_t reserved = 1;
};

#endif
