#ifndef KESTAN_TABLES_SIMPLE_TABLE_H
#define KESTAN_TABLES_SIMPLE_TABLE_H

#include <cstdint>
#include <mutex>
#include <string>

#include "mux/muxed_stream.h"

// Plays one table on one PID, cyclically, its packets spread evenly over the repetition
// period. Without packets it is silent.
//
// Each packet is due a fixed time after the one before it was due, not after it was sent:
// a stream that had to wait catches up, and its mean rate is exact.
//
// Threads: next_packet runs on the pacing loop's thread, the rest on the control thread.
// `mutex` guards all members and is held for a constant time: packets are built before it
// is taken and freed after it has been released. A mutex that cannot be locked raises
// std::system_error.
class SimpleTable final : public muxed_stream {
public:
    // `table_period_ns`: time from one start of the whole table to the next.
    SimpleTable(std::uint16_t stream_pid, std::int64_t table_period_ns)
        : muxed_stream(stream_pid), period_ns(table_period_ns) {}

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override;

    // Plays `new_packets`, whole packets back to back, from the first one on, now; what
    // was left of the previous ones is dropped. They are in `new_packets` afterwards, for
    // the caller to free.
    void replace_packets(std::string& new_packets);

    // Falls silent.
    void clear();

private:
    std::string packets;
    std::uint32_t index = 0;  // byte offset of the next packet
    const std::int64_t period_ns;
    std::int64_t spacing_ns = 0;    // between two packets
    std::int64_t next_time_ns = 0;  // slot time at which the next packet is due
    std::mutex mutex;
};

#endif
