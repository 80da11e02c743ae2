#ifndef KESTAN_TOOLS_KESTAN_INSERT_INSERTION_RECORD_H
#define KESTAN_TOOLS_KESTAN_INSERT_INSERTION_RECORD_H

#include <cstdint>
#include <map>

// What an insertion has done so far. Times are nanoseconds.

// A stream that comes in, its state and its figures.
struct StreamRecord {
    const char* name;
    const char* consequence;  // of a silence
    std::int64_t last = 0;    // arrival, or the beginning of the run
    bool is_silent = true;    // or has not come yet
    bool is_silence_said = false;
    std::uint64_t datagrams = 0;
    std::uint64_t malformed = 0;  // of them: not made of whole transport packets
    std::uint64_t packets = 0;
    std::uint64_t silences = 0;   // of 5 s or more
    std::uint64_t lost_here = 0;  // datagrams that the kernel dropped
    bool in_rtp = false;          // the last datagram
};

struct PidRecord {
    std::uint64_t inserted = 0;
    std::uint64_t replaced = 0;  // packets of INPUT that became table or null packets
    std::uint64_t dropped = 0;   // packets of TABLES
    std::uint64_t lost = 0;      // packets of TABLES that did not come
};

// Why packets of TABLES were dropped.
struct DropRecord {
    std::uint64_t no_room = 0;      // no slot within a second
    std::uint64_t stream_pid = 0;   // on the PID of a stream
    std::uint64_t null_packet = 0;  // they carry nothing
    std::uint64_t damaged = 0;      // no sync byte, or transport_error_indicator
    std::uint64_t malformed = 0;    // datagrams

    [[nodiscard]] std::uint64_t total() const {
        return no_room + stream_pid + null_packet + damaged + malformed;
    }
};

struct InsertionRecord {
    std::int64_t duration = 0;
    StreamRecord input{"INPUT", "nothing leaves"};
    StreamRecord tables{"TABLES", "the tables of INPUT pass"};
    std::map<std::uint16_t, PidRecord> pids;
    std::uint64_t inserted = 0;
    std::uint64_t null_packets_left = 0;
    std::int64_t longest_wait = 0;  // of a packet of TABLES, until it is inserted
    std::int64_t all_waits = 0;     // their sum
    DropRecord dropped;
    std::uint64_t kept_out = 0;  // packets of TABLES on PIDs that are kept: as asked
    std::uint64_t lost = 0;      // packets that are missing in TABLES
    std::uint64_t unsent = 0;    // datagrams that could not be sent

    // Returns whether both streams came and nothing was dropped or lost.
    [[nodiscard]] bool is_in_order() const {
        return input.datagrams != 0 && tables.datagrams != 0 && dropped.total() == 0 &&
               lost == 0 && input.lost_here == 0 && tables.lost_here == 0 && unsent == 0;
    }
};

#endif
