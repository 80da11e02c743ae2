#ifndef KESTAN_MUX_MUXER_H
#define KESTAN_MUX_MUXER_H

#include <cstdint>
#include <memory>
#include <mutex>

#include <boost/intrusive/list.hpp>

#include "mux/muxed_stream.h"

// Sends one datagram; its result is not examined.
using output_fn = int (*)(const std::uint8_t* data, std::uint32_t length);

// The muxer: it turns the registered streams into one packet stream of at most
// `bitrate_kbps`, in datagrams of one to `packets_per_datagram` packets.
//
// There is one per process, made by the main thread before any other thread exists and
// never destroyed. The main thread runs the pacing loop; the control thread registers and
// unregisters streams. `mutex` guards `streams` and every call of a stream: the loop
// holds it for a whole polling pass, though neither while it sends nor while it sleeps.
// Nothing but the loop touches the buffer.
struct muxer {
    using stream_list =
        boost::intrusive::list<muxed_stream, boost::intrusive::size_type<std::uint32_t>>;

    // `kbps` is clamped to 100..100000.
    muxer(std::uint32_t kbps, output_fn send);

    std::unique_ptr<std::uint8_t[]> buffer_begin;  // one datagram
    std::uint8_t* buffer_end;
    std::uint32_t packets_per_datagram;
    stream_list streams;  // in the order of polling; owned by others
    std::uint32_t bitrate_kbps;
    std::uint64_t packet_interval_ns;  // of one packet at bitrate_kbps
    std::mutex mutex;
    output_fn output;
};

// The process's one muxer, null before muxer_create.
extern muxer* the_muxer;

// Makes the muxer. Main thread, once, before every other function here. Memory exhaustion
// raises std::bad_alloc and leaves the_muxer alone.
void muxer_create(std::uint32_t bitrate_kbps, output_fn output);

// Registers a stream that is in no list at the back of the polling order. Waits for the
// current polling pass to end. Returns 0. A mutex that cannot be locked raises
// std::system_error, with nothing changed.
int muxer_add(muxed_stream& stream);

// Unregisters a stream. Once it has returned, the pacing loop calls the stream no more
// and its owner may destroy it. Returns 0, or -1 when the stream was not registered. A
// mutex that cannot be locked raises std::system_error, with nothing changed.
int muxer_remove(muxed_stream& stream);

// The pacing loop: polls, sends, and sleeps until the next packet slot, for ever. The
// slot clock advances by one packet interval per packet, and by one when a whole pass
// yields none; it is never set to the wall clock again, so that packets owed after a
// stall follow in a burst. Kicks the watchdog once per `kick_interval_s` seconds of slot
// time. Main thread; the exceptions of a stream's next_packet leave it, with the mutex
// released.
[[noreturn]] void muxer_run(int watchdog_handle, std::uint32_t kick_interval_s);

#endif
