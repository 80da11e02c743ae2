#ifndef KESTAN_TABLES_TDT_TABLE_H
#define KESTAN_TABLES_TDT_TABLE_H

#include <array>
#include <cstdint>
#include <mutex>

#include "dvb/nanoseconds.h"
#include "mux/muxed_stream.h"

// Makes and plays the Time and Date Table (ETSI EN 300 468, 5.2.5): one packet per second
// of slot time on PID 0x0014, with the UTC at which the packet is made.
//
// It sends nothing until the framework has reported once that the system clock is set. A
// second in which no time is available is skipped: next_packet returns false, and the
// next packet is due one second later.
//
// Threads: created and destroyed on the control thread. next_packet runs on the pacing
// loop's thread. `mutex` guards all members, and is held while the framework's clock is
// asked.
class TDTTable final : public muxed_stream {
public:
    // Asks whether the system clock is set. The first packet is due at once.
    TDTTable();

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override;

private:
    const std::array<std::uint8_t, kTsPacketSize> packet;  // all but the UTC_time
    const std::uint32_t period_ms = 1000;
    const std::int64_t period_ns = period_ms * kNsPerMs;
    std::int64_t next_time_ns;
    std::mutex mutex;
    bool enabled = true;
    bool time_valid;  // the system clock has been reported as set; stays true
};

#endif
