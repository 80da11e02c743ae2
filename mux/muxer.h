#ifndef KESTAN_MUX_MUXER_H
#define KESTAN_MUX_MUXER_H

#include <cstdint>
#include <memory>
#include <mutex>

#include <boost/intrusive/list.hpp>

#include "mux/muxed_stream.h"

// Sends one datagram. The muxer ignores its result.
using output_fn = int (*)(const std::uint8_t* data, std::uint32_t length);

// Turns the registered streams into one packet stream of at most `bitrate_kbps`, in
// datagrams of one to `packets_per_datagram` packets.
//
// There is one muxer per process. The main thread creates it before another thread
// exists, and nothing destroys it. The main thread runs the pacing loop; the control
// thread registers and unregisters streams. `mutex` guards `streams` and every call of a
// stream: the loop holds it for a whole polling pass, but not while it sends or sleeps.
// Only the loop uses the buffer.
struct muxer {
    using stream_list =
        boost::intrusive::list<muxed_stream, boost::intrusive::size_type<std::uint32_t>>;

    // `kbps` is clamped to 100..100000.
    muxer(std::uint32_t kbps, output_fn send);

    std::unique_ptr<std::uint8_t[]> buffer_begin;  // one datagram
    std::uint8_t* buffer_end;
    std::uint32_t packets_per_datagram;
    stream_list streams;  // in polling order; the muxer does not own them
    std::uint32_t bitrate_kbps;
    std::uint64_t packet_interval_ns;  // of one packet at bitrate_kbps
    std::mutex mutex;
    output_fn output;
};

// The muxer of the process, null before muxer_create.
extern muxer* the_muxer;

// Creates the muxer. Main thread, once, before every other function here. Throws
// std::bad_alloc if memory is exhausted, and then leaves the_muxer as it is.
void muxer_create(std::uint32_t bitrate_kbps, output_fn output);

// Appends a stream to the polling order and returns 0. Waits for the current polling pass
// to end. Throws std::system_error and changes nothing if the mutex cannot be locked.
// REQUIRES: `stream` is not registered.
int muxer_add(muxed_stream& stream);

// Unregisters a stream. Returns 0, or -1 if the stream was not registered. After that the
// pacing loop does not call the stream, and its owner may destroy it. Throws
// std::system_error and changes nothing if the mutex cannot be locked.
int muxer_remove(muxed_stream& stream);

// The pacing loop: polls, sends, and sleeps until the next packet slot, for ever.
//
// The slot clock starts at the steady clock. It advances by one packet interval per
// packet, and by one interval if a whole pass yields no packet. It is never set to the
// steady clock again: after a stall, the packets that are late follow in a burst. The
// loop kicks the watchdog once per `kick_interval_s` seconds of slot time.
//
// Main thread. An exception of a stream's next_packet leaves the loop after the mutex has
// been released.
[[noreturn]] void muxer_run(int watchdog_handle, std::uint32_t kick_interval_s);

#endif
