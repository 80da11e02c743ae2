// Imports a capture or a file of sections as kestan-control does. The JSON of the tables
// in it must be readable again.

#include <arpa/inet.h>

#include <cstring>
#include <string>

#include <boost/crc.hpp>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "fuzz/round_trip.h"
#include "tools/receive/table_import.h"

namespace {

constexpr std::size_t kSectionAt = 5;  // in a packet that begins one
constexpr std::size_t kLengthEnd = 3;  // of section_length, in a section

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

// Corrects the CRC_32 of a section: a wrong one would hide the section. Returns the
// section's size, or `left` if it is not whole.
std::size_t repair(char* section, std::size_t left) {
    const auto byte = [&](int at) { return static_cast<std::uint8_t>(section[at]); };
    if (left < kLengthEnd) return left;
    const std::size_t size = kLengthEnd + ((byte(1) & 0x0FU) << 8 | byte(2));
    if (size > left) return left;
    if (size < kLengthEnd + kCrc32Size) return size;
    const std::uint32_t crc = htonl(crc_32(section, size - kCrc32Size));
    std::memcpy(section + size - kCrc32Size, &crc, kCrc32Size);
    return size;
}

void repair_packet(char* packet) {
    if (starts_section(reinterpret_cast<std::uint8_t*>(packet)) && packet[4] == 0) {
        repair(packet + kSectionAt, kTsPacketSize - kSectionAt);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes(data, data + size);
    const bool is_stream = size != 0 && data[0] == kSyncByte;
    for (std::size_t at = 0; size % 2 == 0 && at < size;) {
        if (!is_stream) {
            at += repair(&bytes[at], size - at);
        } else {
            if (size - at >= kTsPacketSize) repair_packet(&bytes[at]);
            at += kTsPacketSize;
        }
    }
    const Multiplex found = import_tables(memory_file(bytes)).tables;
    if (found.pat || found.cat || found.sdt) check_round_trip(found);
    return 0;
}
