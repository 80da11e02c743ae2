#ifndef KESTAN_TOOLS_RECEIVE_SECTION_ASSEMBLER_H
#define KESTAN_TOOLS_RECEIVE_SECTION_ASSEMBLER_H

#include <cstdint>
#include <functional>
#include <utility>

#include "tools/receive/continuity_check.h"
#include "tools/receive/section.h"

// Puts the sections of one PID together from its packets.
//
// A section in progress is discarded when a packet is missing, and when the next section
// begins before it is complete. A section of more than 4,093 bytes is skipped: biTStream
// assembles none. PAT, CAT, PMT and SDT have at most 1,024. One thread.
class SectionAssembler {
public:
    // Takes each whole section, which may be invalid, and the time of the packet that it
    // began in. The section lasts until the call returns.
    using Callback = std::function<void(const Section&, std::int64_t begun)>;

    explicit SectionAssembler(Callback on_section) : on_section_(std::move(on_section)) {}
    ~SectionAssembler() { discard(); }
    SectionAssembler(const SectionAssembler&) = delete;
    SectionAssembler& operator=(const SectionAssembler&) = delete;

    // Takes the PID's next packet, kTsPacketSize bytes of any content. `now` is its time,
    // in any unit. Ignores a repeat.
    void push(const std::uint8_t* packet, Continuity continuity, std::int64_t now = 0);

    // Discards the section in progress: a packet is missing, or cannot be read.
    void discard();

private:
    struct Bytes;

    void add(Bytes& bytes, std::int64_t now);

    Callback on_section_;
    std::uint8_t* in_progress_ = nullptr;  // biTStream's; null if there is none
    std::uint16_t received_ = 0;           // bytes of it
    std::int64_t begun_ = 0;
};

// Puts the sections of one PID together, for a program that does not count the breaks of
// continuity itself. Skips packets with a transport error. One thread.
class PidSections {
public:
    explicit PidSections(SectionAssembler::Callback on_section)
        : assembler_(std::move(on_section)) {}

    // As SectionAssembler::push.
    void push(const std::uint8_t* packet, std::int64_t now = 0);

private:
    ContinuityCheck continuity_;
    SectionAssembler assembler_;
};

#endif
