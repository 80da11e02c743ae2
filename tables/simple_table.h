#ifndef KESTAN_TABLES_SIMPLE_TABLE_H
#define KESTAN_TABLES_SIMPLE_TABLE_H

#include <cstdint>
#include <mutex>
#include <string>

#include "mux/muxed_stream.h"

// Plays one table on one PID in a cycle. Its packets are spread evenly over the
// repetition period. Without packets it sends nothing.
//
// The spacing is the period divided by the number of packets, truncated to nanoseconds.
// Each packet is due one spacing after the previous packet was due, not after it was
// sent. So a stream that had to wait catches up.
//
// Threads: next_packet runs on the pacing loop's thread, the rest on the control thread.
// `mutex` guards all members and is held for a constant time: packets are built before it
// is taken and freed after it has been released. Throws std::system_error if it cannot be
// locked.
class SimpleTable final : public muxed_stream {
public:
    // `table_period_ns` is the time from one start of the whole table to the next.
    SimpleTable(std::uint16_t stream_pid, std::int64_t table_period_ns)
        : muxed_stream(stream_pid), period_ns(table_period_ns) {}

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override;

    // Plays `new_packets` (whole packets back to back) from the first packet on, starting
    // now. Packets of the previous table that are not sent yet are dropped. `new_packets`
    // receives the previous packets, and the caller frees them.
    void replace_packets(std::string& new_packets);

    // Removes the table.
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
