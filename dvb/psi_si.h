#ifndef KESTAN_DVB_PSI_SI_H
#define KESTAN_DVB_PSI_SI_H

#include <cstddef>
#include <cstdint>

#include "dvb/table_kind.h"

// Numbers of the PSI and SI tables, with those of each table from table_kind.h.

constexpr unsigned kPidBits = 13;  // ISO/IEC 13818-1, 2.4.3.2
constexpr std::uint16_t kMaxPid = (1U << kPidBits) - 1;

// PIDs below are reserved for tables (ETSI EN 300 468, table 1).
constexpr std::uint16_t kFirstStreamPid = 0x0020;

constexpr std::uint16_t kNullPid = kMaxPid;   // of null packets
constexpr std::uint16_t kNoPcrPid = kMaxPid;  // PCR_PID of a program without a PCR

// descriptor_tags: ISO/IEC 13818-1, table 2-39, and ETSI EN 300 468, table 12.
constexpr std::uint8_t kCaTag = 0x09;
constexpr std::uint8_t kServiceTag = 0x48;

constexpr std::uint8_t kMaxVersionNumber = 31;  // ISO/IEC 13818-1, 2.4.4.5: 5 bits

constexpr std::size_t kUtcTimeSize = 5;  // in bytes; ETSI EN 300 468, 5.2.5

// UTC_time gives the day as its Modified Julian Date, the number of days since 1858-11-17
// (ETSI EN 300 468, annex C).
constexpr std::int64_t kMjdOfEpoch = 40587;  // 1970-01-01
constexpr std::int64_t kSecondsPerDay = 86400;

#endif
