// A capture as kestan-control imports it: whatever it holds, the JSON of its tables can
// be read again.

#include "fuzz/json_round_trip.h"
#include "tools/table_collector.h"
#include "tools/ts_file.h"

namespace {

constexpr std::size_t kHeaderSize = 5;  // of a packet that begins a section

// CRC_32 of ISO/IEC 13818-1, annex A.
std::uint32_t crc_32(const std::uint8_t* data, std::size_t size) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t bit = 0; bit < 8 * size; ++bit) {
        const bool in = (data[bit / 8] >> (7 - bit % 8) & 1) != 0;
        const bool out = (crc >> 31) != 0;
        crc = crc << 1 ^ (in != out ? 0x04C11DB7 : 0);
    }
    return crc;
}

// Makes the CRC_32 of a section that lies within one packet right.
void repair(std::uint8_t* packet) {
    std::uint8_t* const section = packet + kHeaderSize;
    const auto size = 3 + (static_cast<std::size_t>(section[1] & 0x0F) << 8 | section[2]);
    if ((packet[1] & kPayloadUnitStart) == 0 || packet[4] != 0) return;
    if (size < 7 || kHeaderSize + size > kTsPacketSize) return;
    const std::uint32_t crc = crc_32(section, size - 4);
    for (std::size_t i = 0; i < 4; ++i) {
        section[size - 4 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size,
                                        std::size_t max_size);

// A section with a wrong CRC_32 hides all that is behind it: few are left so.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
    size = LLVMFuzzerMutate(data, size, max_size);
    if (seed % 16 == 0) return size;
    for (std::size_t at = 0; at + kTsPacketSize <= size; at += kTsPacketSize) {
        repair(data + at);
    }
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile capture(data, size);
    TsFile file(capture.path());
    TableCollector collector;
    while (const std::uint8_t* const packet = file.next()) collector.push(packet);
    const Multiplex found = collector.tables();
    if (found.pat || found.cat || found.sdt) check_round_trip(found);
    return 0;
}
