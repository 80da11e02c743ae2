#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_RTP_SEQUENCE_CHECK_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_RTP_SEQUENCE_CHECK_H

#include <cstdint>
#include <set>

#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/receive/rtp_order.h"

// Finds datagrams of an RTP stream that are lost, come again or change places (RFC 3550,
// 5.1).
//
// A datagram that comes late was counted as a lost one, and is no second fault. When
// RtpOrder begins a new count, nothing is missing. Memory is bounded. One thread.
class RtpSequenceCheck {
public:
    explicit RtpSequenceCheck(FaultLog& faults) : faults_(faults) {}

    // Takes the RTP header of a datagram that came at `now`, nanoseconds of the steady
    // clock.
    void add(const std::uint8_t* header, std::int64_t now);

private:
    void add_lost(int count);

    FaultLog& faults_;
    RtpOrder order_;
    std::set<std::uint16_t> missing_;  // that may still come
};

#endif
