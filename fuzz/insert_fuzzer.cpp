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

class Check {
public:
    void push_tables(std::int64_t now, std::string& datagram) {
        if (const auto packets = find_packets(bytes_of(datagram), datagram.size())) {
            for (std::size_t i = 0; i < packets->count; ++i)
                tables_.insert(without_counter(packets->packet(i)));
        }
        inserter_.push_tables(now, bytes_of(datagram), datagram.size());
    }

    void fill(std::int64_t now, const std::string& before) {
        std::string after = before;
        const std::uint8_t* const from =
            reinterpret_cast<const std::uint8_t*>(before.data());
        const auto packets = inserter_.fill(now, bytes_of(after), after.size());
        for (std::size_t i = 0; packets && i < packets->count; ++i) {
            const auto at =
                static_cast<std::size_t>(packets->packet(i) - bytes_of(after));
            compare(from + at, bytes_of(after) + at);
            after.replace(at, kTsPacketSize, before, at, kTsPacketSize);
        }
        expect(after == before, "bytes outside of packets have changed");
    }

    void advance(std::int64_t now) { inserter_.advance(now); }

private:
    static void expect(bool holds, const char* what) {
        if (!holds) throw std::logic_error(what);
    }

    void compare(const std::uint8_t* before, const std::uint8_t* after) {
        const bool is_same = std::equal(before, before + kTsPacketSize, after);
        const std::uint16_t pid = pid_of(after);
        if (!is_same) {
            expect(before[0] == kSyncByte && !has_pcr(before), "no slot has been filled");
            const bool is_null = pid == kNullPid && !starts_section(after);
            expect(is_null || tables_.count(without_counter(after)) == 1,
                   "neither a null packet nor one of TABLES");
            expect(is_null || continues(after), "continuity is broken");
        }
        if (after[0] == kSyncByte) counters_[pid] = continuity_counter_of(after);
    }

    bool continues(const std::uint8_t* packet) {
        const auto last = counters_.find(pid_of(packet));
        return last == counters_.end() ||
               ((last->second + has_payload(packet)) & kContinuityMask) ==
                   continuity_counter_of(packet);
    }

    std::set<std::string> tables_;
    std::map<std::uint16_t, int> counters_;
    Inserter inserter_{{0x0012}, 0, [](auto, const std::string&) {}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t header_size = 4;
    Check check;
    std::int64_t now = 0;
    const std::uint8_t* const end = data + size;
    while (static_cast<std::size_t>(end - data) >= header_size) {
        const std::uint8_t* const header = data;
        data += header_size;
        const auto left = static_cast<std::size_t>(end - data);
        const std::string part(data, data + std::min<std::size_t>(header[3] * 4U, left));
        data += part.size();
        std::string datagram;
        for (int i = 0; i <= header[2]; ++i) datagram += part;
        datagram.resize(std::min(datagram.size(), kMaxDatagram));
        if ((header[0] & kHasWrongCrc) == 0) {
            for (std::size_t at = 0; at + kTsPacketSize <= datagram.size();
                 at += kTsPacketSize)
                repair(bytes_of(datagram) + at);
        }
        now += header[1] * 20 * kNsPerMs;
        check.advance(now);
        if ((header[0] & kIsOfTables) != 0) {
            check.push_tables(now, datagram);
        } else {
            check.fill(now, datagram);
        }
    }
    return 0;
}
