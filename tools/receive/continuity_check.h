#ifndef KESTAN_TOOLS_RECEIVE_CONTINUITY_CHECK_H
#define KESTAN_TOOLS_RECEIVE_CONTINUITY_CHECK_H

#include <array>
#include <cstdint>
#include <optional>

#include "dvb/ts_packet.h"

// Counts the packets of one PID whose continuity_counter is not what the packet before
// asks for (ISO/IEC 13818-1, 2.4.3.3): plus one with payload, the same without; one exact
// repeat of a packet is allowed, and a discontinuity_indicator excuses any counter. Not
// for null packets, whose counter means nothing. One thread.
class ContinuityCheck {
public:
    // Takes the PID's next packet, kTsPacketSize bytes. Returns false for an exact
    // repeat, which carries nothing new.
    bool push(const std::uint8_t* packet);

    [[nodiscard]] std::uint64_t errors() const { return errors_; }

private:
    [[nodiscard]] bool follows(const std::uint8_t* packet) const;
    [[nodiscard]] bool repeats(const std::uint8_t* packet) const;

    std::optional<std::array<std::uint8_t, kTsPacketSize>> last_;
    bool repeated_ = false;
    std::uint64_t errors_ = 0;
};

#endif
