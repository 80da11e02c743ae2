#include "tools/rules/bit_rate.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <vector>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::size_t kPatHeaderSize = 8;  // ISO/IEC 13818-1, 2.4.4.3
constexpr std::size_t kPatProgramSize = 4;
constexpr std::size_t kPatProgramsPerSection = 100;  // Kestan's choice

// The first packet of a section has a pointer_field (ISO/IEC 13818-1, 2.4.4.1).
constexpr std::size_t kPayloadSize = kTsPacketSize - 4;
constexpr std::size_t kPointerFieldSize = 1;

std::size_t times_per_second(TableKind kind) {
    return static_cast<std::size_t>(kNsPerSecond / table_info(kind).period_ns);
}

std::size_t packets_of_section(std::size_t size) {
    return (kPointerFieldSize + size + kPayloadSize - 1) / kPayloadSize;
}

std::size_t size_of(const std::vector<Descriptor>& descriptors) {
    std::size_t size = 0;
    for (const Descriptor& descriptor : descriptors) {
        size += kDescriptorHeaderSize + descriptor.data.size();
    }
    return size;
}

// Returns the packets of a table's sections. An entry is never split: each section takes
// as many of the next entries as fit.
std::size_t packets_of_entries(std::size_t header_size,
                               const std::vector<std::size_t>& entry_sizes) {
    std::size_t packets = 0;
    std::size_t used = 0;
    for (const std::size_t size : entry_sizes) {
        if (used != 0 && used + size > section_capacity(header_size)) {
            packets += packets_of_section(header_size + used + kCrc32Size);
            used = 0;
        }
        used += size;
    }
    return packets + packets_of_section(header_size + used + kCrc32Size);
}

}  // namespace

std::size_t packet_count(const PAT& pat) {
    std::size_t left = pat.programs.size();
    std::size_t packets = 0;
    do {
        const std::size_t programs = std::min(left, kPatProgramsPerSection);
        packets +=
            packets_of_section(kPatHeaderSize + programs * kPatProgramSize + kCrc32Size);
        left -= programs;
    } while (left != 0);
    return packets;
}

std::size_t packet_count(const CAT& cat) {
    std::vector<std::size_t> sizes;
    for (const Descriptor& descriptor : cat.descriptors) {
        sizes.push_back(kDescriptorHeaderSize + descriptor.data.size());
    }
    return packets_of_entries(kCatHeaderSize, sizes);
}

std::size_t packet_count(const SDT& sdt) {
    std::vector<std::size_t> sizes;
    for (const SDTService& service : sdt.services) {
        sizes.push_back(kSdtServiceHeaderSize + size_of(service.descriptors));
    }
    return packets_of_entries(kSdtHeaderSize, sizes);
}

std::size_t packet_count(const PMT& pmt) {
    std::size_t size = kPmtHeaderSize + size_of(pmt.descriptors) + kCrc32Size;
    for (const PMTStream& stream : pmt.streams) {
        size += kPmtStreamHeaderSize + size_of(stream.descriptors);
    }
    return packets_of_section(size);
}

std::size_t BitRate::bits_per_second() const {
    return packets_per_second * kTsPacketBits;
}

std::string BitRate::text() const {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << static_cast<double>(packets_per_second)
         << " packets a second, " << static_cast<double>(bits_per_second()) / 1000
         << " kbit/s";
    return text.str();
}

BitRate needed_bit_rate(const Multiplex& multiplex) {
    std::size_t packets = times_per_second(TableKind::kTdt);
    for_each_table(multiplex, [&](TablePlace place, const auto& table) {
        packets += times_per_second(place.kind) * packet_count(table);
    });
    return {packets};
}
