// A capture as kestan-control imports it: whatever it holds, the JSON of its tables can
// be read again.

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>

#include <boost/crc.hpp>

#include "dvb/section_limits.h"
#include "fuzz/round_trip.h"
#include "tools/receive/table_collector.h"
#include "tools/receive/ts_file.h"

namespace {

constexpr std::size_t kSectionAt = 5;  // in a packet that begins one

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

// Makes the CRC_32 of a section that lies within one packet right: a wrong one hides the
// section.
void repair(std::array<std::uint8_t, kTsPacketSize>& packet) {
    std::uint8_t* const section = &packet[kSectionAt];
    const std::size_t size = 3 + ((section[1] & 0x0FU) << 8 | section[2]);
    if (!starts_section(packet.data()) || packet[4] != 0) return;
    if (size < 3 + kCrc32Size || kSectionAt + size > kTsPacketSize) return;
    const std::uint32_t crc = htonl(crc_32(section, size - kCrc32Size));
    std::memcpy(section + size - kCrc32Size, &crc, kCrc32Size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TsFile file(memory_file({reinterpret_cast<const char*>(data), size}));
    TableCollector collector;
    std::array<std::uint8_t, kTsPacketSize> packet{};
    while (const std::uint8_t* const next = file.next()) {
        std::copy_n(next, kTsPacketSize, packet.begin());
        if (size % 2 == 0) repair(packet);
        collector.push(packet.data());
    }
    const Multiplex found = collector.tables();
    if (found.pat || found.cat || found.sdt) check_round_trip(found);
    return 0;
}
