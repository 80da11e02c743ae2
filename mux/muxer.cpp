#include "mux/muxer.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "dvb/nanoseconds.h"
#include "framework/watchdog.h"

muxer* the_muxer = nullptr;

namespace {

constexpr std::uint32_t kPacketsPerDatagram = 7;  // the most that fit an Ethernet frame
constexpr std::uint32_t kMinBitrateKbps = 100;
constexpr std::uint32_t kMaxBitrateKbps = 100000;

// Returns the time of one packet, rounded to the nearest nanosecond.
std::uint64_t packet_interval(std::uint32_t bitrate_kbps) {
    constexpr std::uint64_t ns_at_1_kbps = kTsPacketBits * kNsPerMs;
    return (ns_at_1_kbps + bitrate_kbps / 2) / bitrate_kbps;
}

// Asks each stream once while the datagram has room, and returns the number of bytes
// written. The next pass begins with the stream after the last one asked, in cyclic
// order.
std::uint32_t polling_pass(muxer& mux, std::int64_t& slot_time_ns) {
    const std::lock_guard lock(mux.mutex);
    const auto interval_ns = static_cast<std::int64_t>(mux.packet_interval_ns);
    std::uint8_t* w = mux.buffer_begin.get();
    std::uint32_t asked = 0;
    auto next = mux.streams.begin();
    while (next != mux.streams.end() && w < mux.buffer_end) {
        if (next->next_packet(w, slot_time_ns)) {
            w += kTsPacketSize;
            slot_time_ns += interval_ns;
        }
        ++asked;
        ++next;
    }
    if (next != mux.streams.end()) {
        mux.streams.splice(mux.streams.end(), mux.streams, mux.streams.begin(), next,
                           asked);
    }
    if (w == mux.buffer_begin.get()) slot_time_ns += interval_ns;  // an idle slot
    return static_cast<std::uint32_t>(w - mux.buffer_begin.get());
}

void sleep_until(std::int64_t slot_time_ns) {
    const std::int64_t difference = slot_time_ns - steady_now_ns();
    if (difference <= 0) return;
    timespec remaining{};
    remaining.tv_sec = static_cast<time_t>(difference / kNsPerSecond);
    remaining.tv_nsec = static_cast<long>(difference % kNsPerSecond);
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

}  // namespace

muxer::muxer(std::uint32_t kbps, output_fn send)
    : buffer_begin(new std::uint8_t[kPacketsPerDatagram * kTsPacketSize]),
      buffer_end(buffer_begin.get() + kPacketsPerDatagram * kTsPacketSize),
      packets_per_datagram(kPacketsPerDatagram),
      bitrate_kbps(std::clamp(kbps, kMinBitrateKbps, kMaxBitrateKbps)),
      packet_interval_ns(packet_interval(bitrate_kbps)),
      output(send) {}

void muxer_create(std::uint32_t bitrate_kbps, output_fn output) {
    the_muxer = new muxer(bitrate_kbps, output);
}

int muxer_add(muxed_stream& stream) {
    const std::lock_guard lock(the_muxer->mutex);
    the_muxer->streams.push_back(stream);
    return 0;
}

int muxer_remove(muxed_stream& stream) {
    const std::lock_guard lock(the_muxer->mutex);
    if (!stream.is_linked()) return -1;
    the_muxer->streams.erase(muxer::stream_list::s_iterator_to(stream));
    return 0;
}

void muxer_run(int watchdog_handle, std::uint32_t kick_interval_s) {
    std::int64_t slot_time_ns = steady_now_ns();
    std::int64_t last_kick_ns = slot_time_ns;
    const std::int64_t kick_period_ns = kick_interval_s * kNsPerSecond;
    muxer* mux = the_muxer;
    for (;;) {
        const std::uint32_t length = polling_pass(*mux, slot_time_ns);
        if (length > 0) mux->output(mux->buffer_begin.get(), length);
        sleep_until(slot_time_ns);
        if (slot_time_ns - last_kick_ns < kick_period_ns) continue;
        last_kick_ns = slot_time_ns;
        watchdog_kick(watchdog_handle);
        mux = the_muxer;
    }
}
