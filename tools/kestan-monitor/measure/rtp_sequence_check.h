#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_RTP_SEQUENCE_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_RTP_SEQUENCE_CHECK_H

#include <cstdint>
#include <optional>
#include <set>

#include "tools/kestan-monitor/measure/fault_log.h"

// Finds datagrams of an RTP stream that are lost, come again or change places (RFC 3550,
// 5.1).
//
// A datagram that comes late was counted as a lost one, and is no second fault. The count
// starts again with a new source. It also starts again with the second datagram in a row
// that is far behind: then the sender has restarted (RFC 3550, A.1). Memory is bounded.
// One thread.
class RtpSequenceCheck {
public:
    explicit RtpSequenceCheck(FaultLog& faults) : faults_(faults) {}

    // Takes the RTP header of a datagram that came at `now`, nanoseconds of the steady
    // clock.
    void add(const std::uint8_t* header, std::int64_t now);

private:
    void begin(std::uint32_t source, std::uint16_t number);
    void add_lost(std::uint16_t first, int count);

    FaultLog& faults_;
    std::optional<std::uint32_t> source_;
    std::uint16_t highest_ = 0;
    std::set<std::uint16_t> missing_;  // that may still come
    std::optional<std::uint16_t> after_far_behind_;
};

#endif
