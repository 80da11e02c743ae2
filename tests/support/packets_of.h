#ifndef KESTAN_TESTS_SUPPORT_PACKETS_OF_H
#define KESTAN_TESTS_SUPPORT_PACKETS_OF_H

#include <cstdint>
#include <string>

#include "dvb/ts_packet.h"
#include "tools/multiplex.h"

constexpr std::uint16_t kPmtPid = 0x1FFE;

// A table as it goes on the air, on its own PID or on kPmtPid; nothing when it is
// refused.
[[nodiscard]] std::string packets_of(const orvel::thrift::dvb_tables::PAT& pat);
[[nodiscard]] std::string packets_of(const orvel::thrift::dvb_tables::CAT& cat);
[[nodiscard]] std::string packets_of(const orvel::thrift::dvb_tables::SDT& sdt);
[[nodiscard]] std::string packets_of(const orvel::thrift::dvb_tables::PMT& pmt);

// Gives a receiver one packet after the other.
template <typename Receiver>
void push_packets(const std::string& packets, Receiver& receiver) {
    for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
        receiver.push(reinterpret_cast<const std::uint8_t*>(&packets[at]));
    }
}

// The tables that a receiver finds in the packets.
[[nodiscard]] Multiplex received(const std::string& packets);

#endif
