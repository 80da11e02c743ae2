#ifndef KESTAN_TESTS_SUPPORT_WIRE_H
#define KESTAN_TESTS_SUPPORT_WIRE_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "tests/support/playout.h"
#include "tools/multiplex.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/section_collector.h"

// A receiver that checks what no datagram of Kestan's may ever break: one to seven whole
// packets, never faster than the bitrate, each with a payload, no null packet, no error
// or scrambling flag, whole sections with a right CRC_32, continuity per PID. What is
// wrong fails the test at once.
class Wire {
public:
    void push(const Datagram& datagram);

    using Sections =
        std::map<std::string, std::int64_t>;  // distinct; when each came last

    // What has come on a PID since the last call of forget().
    struct Pid {
        std::uint64_t packets = 0;
        Sections sections;
        // From a section to its repetition, the one before the last forget() included.
        std::int64_t shortest_ns = INT64_MAX;
        std::int64_t longest_ns = 0;
        std::string tables;  // each section's packets, once
    };
    [[nodiscard]] const std::map<std::uint16_t, Pid>& pids() const { return pids_; }
    void forget();

    // The tables since the last call of forget(). PMTs are looked for where they are said
    // to be, the PAT on the wire notwithstanding.
    [[nodiscard]] Multiplex tables(
        const std::map<std::uint16_t, std::uint16_t>& pid_of_program) const;

    // The PID's table may break off in the middle of a section, once, from now on.
    void allow_break(std::uint16_t pid) { may_break_.insert(pid); }
    void allow_no_breaks() { may_break_.clear(); }

    // The PID's stream is gone; another one begins its counters anew.
    void expect_new_stream(std::uint16_t pid);

private:
    void push_packet(const std::uint8_t* packet);
    void note(std::uint16_t pid, const dvbpsi_psi_section_t& section);

    std::map<std::uint16_t, Pid> pids_;
    std::map<std::uint16_t, Sections> earlier_;  // between the last two calls of forget()
    std::map<std::uint16_t, std::unique_ptr<SectionCollector>> receivers_;
    std::map<std::uint16_t, ContinuityCheck> continuity_;
    std::map<std::uint16_t, std::string> under_way_;  // the section's packets
    std::set<std::uint16_t> may_break_;
    std::int64_t now_ns_ = 0;
    std::int64_t free_ns_ = 0;  // when the packets so far have had their time
};

#endif
