#include "tables/section_packetizer.h"

#include <numeric>

#include <gtest/gtest.h>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"

namespace {

// A section of an invented private table; a long one has its CRC_32 in `size`.
SectionsPtr make_section(std::size_t size, bool is_long) {
    SectionsPtr section(dvbpsi_NewPSISection(static_cast<int>(kMaxSectionSize)));
    std::iota(section->p_data, section->p_data + size, static_cast<std::uint8_t>(size));
    section->b_syntax_indicator = is_long;
    section->p_payload_end = section->p_data + size - (is_long ? kCrc32Size : 0);
    return section;
}

// What the packets of one section must be, by the layout.
std::string expected_packets(const SectionsPtr& section, std::size_t size,
                             int first_counter) {
    std::string data(section->p_data, section->p_data + size);
    std::string packets;
    for (int i = 0; i == 0 || !data.empty(); ++i) {
        const std::size_t room = i == 0 ? 183 : 184;
        std::string packet = {0x47, static_cast<char>(i == 0 ? 0x5F : 0x1F), '\xFE'};
        packet += static_cast<char>(0x10 | ((first_counter + i) & 0x0F));
        if (i == 0) packet += '\0';
        packet += data.substr(0, room);
        data.erase(0, room);
        packet.resize(188, '\xFF');
        packets += packet;
    }
    return packets;
}

TEST(SectionPacketizer, BeginsEachSectionInAPacketOfItsOwnAtAnySize) {
    for (const bool is_long : {true, false}) {
        for (std::size_t size = 12; size <= kMaxSectionSize; ++size) {
            const std::size_t second_size = kMaxSectionSize + 12 - size;
            SectionsPtr first = make_section(size, is_long);
            const SectionsPtr second = make_section(second_size, is_long);
            const std::string head = expected_packets(first, size, 0);
            const auto counter = static_cast<int>(head.size() / kTsPacketSize);
            const std::string tail = expected_packets(second, second_size, counter);
            first->p_next = second.get();
            const std::string packets = packetize_sections(first.get(), 0x1FFE);
            first->p_next = nullptr;
            ASSERT_EQ(packets, head + tail) << size;
        }
    }
}

}  // namespace
