#ifndef KESTAN_TESTS_SUPPORT_MONITORED_STREAM_H
#define KESTAN_TESTS_SUPPORT_MONITORED_STREAM_H

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include <boost/crc.hpp>

#include "dvb/nanoseconds.h"
#include "tables/section_packetizer.h"
#include "tools/json/number_text.h"
#include "tools/kestan-monitor/measure/stream_statistics.h"
#include "tools/kestan-monitor/report/fault_text.h"

// A stream that a test makes of sections, and its measurement.

struct HexSection {
    std::uint16_t pid;
    std::string hex;  // but for section_length and CRC_32
};

inline const HexSection kPat{0x0000, "00 b000 0001 c1 0000 0007 e100"};
inline const HexSection kCat{0x0001, "01 b000 ffff c1 0000 0904 0b00 e123"};
inline const HexSection kSdt{0x0011, "42 f000 0001 c1 0000 0001 f0"};
inline const HexSection kLongSdt{kSdt.pid, kSdt.hex + std::string(400, '0')};
inline const HexSection kTdt{0x0014, "70 7000 c079 124559"};
inline const HexSection kPmt{0x0100, "02 b000 0007 c1 0000 ffff f000"};

// ISO/IEC 13818-1, annex A.
inline constexpr auto monitored_crc_32 =
    boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

using Checks = std::map<std::string, int>;  // how often each has failed

struct Stream {
    // Returns the packets of a section with continuous counters.
    std::string packets(const HexSection& section) {
        std::string bytes = *from_hex(section.hex);
        const bool is_long = (bytes[1] & 0x80) != 0;
        bytes[2] = static_cast<char>(bytes.size() - 3 + (is_long ? 4 : 0));
        const std::uint32_t crc = htonl(monitored_crc_32(bytes.data(), bytes.size()));
        if (is_long) bytes.append(reinterpret_cast<const char*>(&crc), 4);
        const SectionsPtr built(dvbpsi_NewPSISection(1024));
        built->p_payload_end = std::copy(bytes.begin(), bytes.end(), built->p_data);
        std::string packets = packetize_sections(built.get(), section.pid);
        for (std::size_t at = 3; at < packets.size(); at += kTsPacketSize) {
            packets[at] = static_cast<char>(0x10 | (counters[section.pid]++ & 0x0F));
        }
        return packets;
    }

    void send(std::int64_t time, const std::string& datagram) {
        const auto* const data = reinterpret_cast<const std::uint8_t*>(datagram.data());
        statistics.push(time, data, datagram.size());
    }
    void send(std::int64_t time, const HexSection& section) {
        send(time, packets(section));
    }

    // Returns the checks that have failed by `now`, on the section's PID or anywhere. A
    // fault that lasts counts once.
    Checks failing(std::int64_t now, const HexSection* on = nullptr) {
        statistics.advance(now, 0);
        Checks checks;
        for (const auto& [fault, record] : statistics.faults().records()) {
            if (on != nullptr && fault.pid != on->pid) continue;
            const std::string check = check_name(fault.kind);
            const bool lasts = fault.kind == FaultKind::kSilence || check == "repetition";
            checks[check] = lasts ? 1 : checks[check] + static_cast<int>(record.count);
        }
        return checks;
    }

    StreamStatistics statistics{0};
    std::map<int, int> counters;
};

#endif
