// Sends datagrams of both streams through kestan-insert's core. What leaves must be what
// came in, except for packets that became null packets or those of TABLES.
//
// Each datagram has a header of four bytes: its stream and what it lacks; the time since
// the last one, in units of 20 ms; how many times its bytes are repeated; and the number
// of its bytes, divided by four.

#include <bitstream/mpeg/psi/psi.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "tools/kestan-insert/inserter.h"
#include "tools/receive/packet_flags.h"

namespace {

constexpr std::uint8_t kIsOfTables = 0x01;
constexpr std::uint8_t kHasWrongCrc = 0x02;
constexpr std::size_t kMaxDatagram = 65507;  // over UDP and IPv4

std::uint8_t* bytes_of(std::string& datagram) {
    return reinterpret_cast<std::uint8_t*>(datagram.data());
}

// Corrects the CRC_32 of a section that begins and ends in the packet: a wrong one would
// hide it.
void repair(std::uint8_t* packet) {
    std::uint8_t* const section = packet + 5;
    const std::size_t size = PSI_HEADER_SIZE + std::size_t{psi_get_length(section)};
    if (starts_section(packet) && packet[4] == 0 && size <= kTsPacketSize - 5 &&
        size >= PSI_HEADER_SIZE_SYNTAX1 + kCrc32Size)
        psi_set_crc(section);
}

// Returns the packet without its continuity_counter, which an insertion sets.
std::string without_counter(const std::uint8_t* packet) {
    std::string bytes(packet, packet + kTsPacketSize);
    bytes[3] = static_cast<char>(packet[3] & ~kContinuityMask);
    return bytes;
}

void expect(bool holds, const char* what) {
    if (!holds) throw std::logic_error(what);
}

struct Check {
    void push_tables(std::int64_t now, std::string& datagram) {
        const auto packets = find_packets(bytes_of(datagram), datagram.size());
        for (std::size_t i = 0; packets && i < packets->count; ++i)
            tables.insert(without_counter(packets->packet(i)));
        inserter.push_tables(now, bytes_of(datagram), datagram.size());
    }

    void fill(std::int64_t now, std::string& before) {
        std::string after = before;
        const auto packets = inserter.fill(now, bytes_of(after), after.size());
        for (std::size_t i = 0; packets && i < packets->count; ++i) {
            const auto at =
                static_cast<std::size_t>(packets->packet(i) - bytes_of(after));
            compare(bytes_of(before) + at, bytes_of(after) + at);
            after.replace(at, kTsPacketSize, before, at, kTsPacketSize);
        }
        expect(after == before, "bytes outside of packets have changed");
    }

    void compare(const std::uint8_t* before, const std::uint8_t* after) {
        std::optional<int>& last = counters[pid_of(after)];
        const bool is_same = std::equal(before, before + kTsPacketSize, after);
        const bool is_null = pid_of(after) == kNullPid && !starts_section(after);
        expect(is_same || (before[0] == kSyncByte && !has_pcr(before)),
               "no slot has been filled");
        if (!is_same && !is_null) {
            expect(tables.count(without_counter(after)) == 1,
                   "neither a null packet nor one of TABLES");
            expect(!last || ((*last + has_payload(after)) & kContinuityMask) ==
                                continuity_counter_of(after),
                   "continuity is broken");
        }
        if (after[0] == kSyncByte) last = continuity_counter_of(after);
    }

    std::set<std::string> tables;  // packets without counters
    std::map<std::uint16_t, std::optional<int>> counters;
    Inserter inserter{{0x0012}, 0, [](auto, const std::string&) {}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t header_size = 4;
    const std::string input(data, data + size);
    Check check;
    std::int64_t now = 0;
    for (std::size_t at = 0; at + header_size <= size;) {
        const std::uint8_t* const header = data + at;
        const std::string part = input.substr(at + header_size, header[3] * 4U);
        at += header_size + part.size();
        std::string datagram;
        for (int i = 0; i <= header[2]; ++i) datagram += part;
        datagram.resize(std::min(datagram.size(), kMaxDatagram));
        const std::size_t packets = datagram.size() / kTsPacketSize;
        for (std::size_t i = 0; i < packets && (header[0] & kHasWrongCrc) == 0; ++i)
            repair(bytes_of(datagram) + i * kTsPacketSize);
        now += header[1] * 20 * kNsPerMs;
        check.inserter.advance(now);
        if ((header[0] & kIsOfTables) != 0) {
            check.push_tables(now, datagram);
        } else {
            check.fill(now, datagram);
        }
    }
    return 0;
}
