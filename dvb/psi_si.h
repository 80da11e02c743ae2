#ifndef KESTAN_DVB_PSI_SI_H
#define KESTAN_DVB_PSI_SI_H

#include <cstddef>
#include <cstdint>

// PIDs, table_ids and other numbers of the PSI and SI tables.

constexpr unsigned kPidBits = 13;  // ISO/IEC 13818-1, 2.4.3.2
constexpr std::uint16_t kMaxPid = (1U << kPidBits) - 1;

// PIDs with a fixed use: ISO/IEC 13818-1, table 2-3, and ETSI EN 300 468, table 1.
constexpr std::uint16_t kPatPid = 0x0000;
constexpr std::uint16_t kCatPid = 0x0001;
constexpr std::uint16_t kSdtPid = 0x0011;
constexpr std::uint16_t kTdtPid = 0x0014;
constexpr std::uint16_t kNullPid = kMaxPid;   // of null packets
constexpr std::uint16_t kNoPcrPid = kMaxPid;  // PCR_PID of a program without a PCR

// table_ids: ISO/IEC 13818-1, table 2-31, and ETSI EN 300 468, table 2.
constexpr std::uint8_t kPatTableId = 0x00;
constexpr std::uint8_t kCatTableId = 0x01;
constexpr std::uint8_t kPmtTableId = 0x02;
constexpr std::uint8_t kSdtActualTableId = 0x42;
constexpr std::uint8_t kTdtTableId = 0x70;

// descriptor_tags: ISO/IEC 13818-1, table 2-39, and ETSI EN 300 468, table 12.
constexpr std::uint8_t kCaTag = 0x09;
constexpr std::uint8_t kServiceTag = 0x48;

constexpr std::uint8_t kMaxVersionNumber = 31;  // ISO/IEC 13818-1, 2.4.4.5: 5 bits
constexpr std::uint8_t kMaxRunningStatus = 7;   // ETSI EN 300 468, 5.2.3: 3 bits

constexpr std::size_t kUtcTimeSize = 5;  // in bytes; ETSI EN 300 468, 5.2.5

// UTC_time gives the day as its Modified Julian Date, the number of days since 1858-11-17
// (ETSI EN 300 468, annex C).
constexpr std::int64_t kMjdOfEpoch = 40587;  // 1970-01-01
constexpr std::int64_t kSecondsPerDay = 86400;

#endif
