// Imports a capture or a file of sections as kestan-control does. The JSON of the tables
// in it must be readable again.

#include <bitstream/mpeg/psi/psi.h>

#include <string>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "fuzz/round_trip.h"
#include "tools/receive/table_import.h"

namespace {

constexpr std::size_t kSectionAt = 5;  // in a packet that begins one

// Corrects the CRC_32 of a section: a wrong one would hide the section. Returns the
// section's size, or `left` if it is not whole.
std::size_t repair(std::uint8_t* section, std::size_t left) {
    if (left < PSI_HEADER_SIZE) return left;
    const std::size_t size = PSI_HEADER_SIZE + std::size_t{psi_get_length(section)};
    if (size > left) return left;
    if (size >= PSI_HEADER_SIZE + kCrc32Size) psi_set_crc(section);
    return size;
}

void repair_packet(std::uint8_t* packet) {
    if (starts_section(packet) && packet[4] == 0) {
        repair(packet + kSectionAt, kTsPacketSize - kSectionAt);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes(data, data + size);
    auto* const begin = reinterpret_cast<std::uint8_t*>(bytes.data());
    const bool is_stream = size != 0 && data[0] == kSyncByte;
    for (std::size_t at = 0; size % 2 == 0 && at < size;) {
        if (!is_stream) {
            at += repair(begin + at, size - at);
        } else {
            if (size - at >= kTsPacketSize) repair_packet(begin + at);
            at += kTsPacketSize;
        }
    }
    const Multiplex found = import_tables(memory_file(bytes)).tables;
    if (found.pat || found.cat || found.sdt) check_round_trip(found);
    return 0;
}
