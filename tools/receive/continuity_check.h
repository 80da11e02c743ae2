#ifndef KESTAN_TOOLS_RECEIVE_CONTINUITY_CHECK_H
#define KESTAN_TOOLS_RECEIVE_CONTINUITY_CHECK_H

#include <array>
#include <cstdint>
#include <optional>

#include "dvb/ts_packet.h"

// How a packet continues its PID's stream.
enum class Continuity : std::uint8_t {
    kInOrder,
    kRepeat,   // an exact repeat of the packet before: it carries nothing new
    kExcused,  // packets can be missing, which a discontinuity_indicator allows
    kBroken,   // at least one packet is missing or in the wrong place
};

// Checks the continuity_counter of one PID's packets (ISO/IEC 13818-1, 2.4.3.3): plus one
// with payload, the same without; one exact repeat of a packet is allowed, and a
// discontinuity_indicator excuses any counter. REQUIRES: the PID is not that of null
// packets, whose counter has no meaning. One thread.
class ContinuityCheck {
public:
    // Takes the PID's next packet, kTsPacketSize bytes.
    [[nodiscard]] Continuity push(const std::uint8_t* packet);

    // Returns how many packets are missing before the last one, as far as 4 bits can say.
    [[nodiscard]] unsigned missing() const { return missing_; }

private:
    [[nodiscard]] unsigned missing_before(const std::uint8_t* packet) const;
    [[nodiscard]] bool repeats(const std::uint8_t* packet) const;

    std::optional<std::array<std::uint8_t, kTsPacketSize>> last_;
    bool repeated_ = false;
    unsigned missing_ = 0;
};

#endif
