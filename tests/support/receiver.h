#ifndef KESTAN_TESTS_SUPPORT_RECEIVER_H
#define KESTAN_TESTS_SUPPORT_RECEIVER_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tests/support/playout.h"

// Puts the sections of one PID together. Fails the test if a packet does not have the
// layout of Kestan: payload only, each section in a new packet after a pointer_field of
// 0, stuffing after its end, continuous counters.
class SectionReader {
public:
    // Takes the next packet. Returns the section that it completes, if any.
    std::optional<std::string> push(const std::uint8_t* packet);

    int torn = 0;  // sections that another one's start cut off

private:
    std::optional<int> counter_;
    std::string section_;
};

// A receiver of the whole stream. Fails the test also if datagrams come faster than the
// bitrate allows, or if more than one section of a PID is torn between two calls of
// forget().
class Receiver {
public:
    // The distinct sections, and the time when each came last.
    using Seen = std::map<std::string, std::int64_t>;

    struct Pid {
        SectionReader reader;
        Seen sections;
        Seen earlier;  // between the last two calls of forget()
        // The time from a section to its repetition, also across forget().
        std::int64_t shortest_ns = INT64_MAX;
        std::int64_t longest_ns = 0;
    };

    void push(const Datagram& datagram);

    // Returns what has come since the last forget().
    [[nodiscard]] const std::map<std::uint16_t, Pid>& pids() const { return pids_; }
    void forget();

    // Forgets the PID: its stream has ended, and a new one may begin with any counter.
    void end_stream(std::uint16_t pid) { pids_.erase(pid); }

private:
    std::map<std::uint16_t, Pid> pids_;
    std::int64_t free_ns_ = 0;  // the earliest time for the next datagram
};

#endif
