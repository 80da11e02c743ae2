#ifndef KESTAN_TESTS_SUPPORT_WIRE_H
#define KESTAN_TESTS_SUPPORT_WIRE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/multiplex.h"
#include "tools/section_collector.h"

// A receiver that checks what no datagram of Kestan's may ever break: one to seven whole
// packets, each with a payload, no null packet, no error or scrambling flag, whole
// sections with a right CRC_32, continuity per PID. What is wrong fails the test at once.
class Wire {
public:
    void push(const std::string& datagram);

    // The PIDs, packets and distinct sections since the last call of forget().
    struct Pid {
        std::uint64_t packets = 0;
        std::set<std::string> sections;
    };
    [[nodiscard]] const std::map<std::uint16_t, Pid>& pids() const { return pids_; }

    // The tables since the last call of forget(). PMTs are looked for where `pmts` says,
    // the PAT on the wire notwithstanding.
    [[nodiscard]] Multiplex tables(
        const std::map<std::uint16_t, std::uint16_t>& pid_of_program) const;

    void forget();

    // The PID's table may break off in the middle of a section, once, from now on.
    void allow_break(std::uint16_t pid) { may_break_.insert(pid); }
    void allow_no_breaks() { may_break_.clear(); }

    // The PID's stream is gone; another one begins its counters anew.
    void expect_new_stream(std::uint16_t pid);

private:
    void push_packet(const std::uint8_t* packet);

    std::map<std::uint16_t, Pid> pids_;
    std::map<std::uint16_t, std::unique_ptr<SectionCollector>> receivers_;
    std::set<std::uint16_t> may_break_;
    std::string packets_;
};

#endif
