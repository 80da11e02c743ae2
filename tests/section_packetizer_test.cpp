#include "tables/section_packetizer.h"

#include <gtest/gtest.h>

#include <numeric>

#include "framework/section_limits.h"
#include "mux/ts_packet.h"
#include "tools/section_collector.h"

namespace {

std::string bytes_of(const dvbpsi_psi_section_t& section) {
    const std::size_t crc = section.b_syntax_indicator ? kCrc32Size : 0;
    return {section.p_data, section.p_payload_end + crc};
}

// A section of an invented private table, `size` bytes with its CRC_32.
SectionsPtr make_section(dvbpsi_t* handle, std::size_t size) {
    SectionsPtr section(dvbpsi_NewPSISection(static_cast<int>(kMaxSectionSize)));
    section->i_table_id = 0x80;
    section->b_syntax_indicator = true;
    section->i_length = static_cast<std::uint16_t>(size - 3);
    section->p_payload_start = section->p_data + 8;
    section->p_payload_end = section->p_data + size - kCrc32Size;
    std::iota(section->p_payload_start, section->p_payload_end, std::uint8_t{0xA0});
    dvbpsi_BuildPSISection(handle, section.get());
    return section;
}

TEST(SectionPacketizer, MakesTheBytesOfASmallPat) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    const PatPtr pat(dvbpsi_pat_new(0x1234, 5, true));
    dvbpsi_pat_program_add(pat.get(), 0x8001, 0x1FFF);
    const SectionsPtr sections(
        dvbpsi_pat_sections_generate(handle.get(), pat.get(), 100));
    std::string expected(
        "\x47\x40\x00\x10\x00"
        "\x00\xB0\x0D\x12\x34\xCB\x00\x00\x80\x01\xFF\xFF",
        17);
    // CRC_32 by hand: MSB first, polynomial 0x04C11DB7, all ones at the start.
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 5; i < expected.size(); ++i) {
        crc ^= static_cast<std::uint32_t>(static_cast<std::uint8_t>(expected[i])) << 24;
        for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ (crc >> 31 ? 0x04C11DB7u : 0u);
    }
    for (int shift = 24; shift >= 0; shift -= 8) {
        expected += static_cast<char>(crc >> shift & 0xFF);
    }
    expected.resize(kTsPacketSize, '\xFF');
    EXPECT_EQ(packetize_sections(sections.get(), 0), expected);
}

// At the sizes where a section just fills a packet, and at all others.
TEST(SectionPacketizer, CutsChainsOfAnySizeIntoPacketsThatGiveThemBack) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    for (std::size_t size = 12; size <= kMaxSectionSize; ++size) {
        const SectionsPtr chain = make_section(handle.get(), size);
        chain->p_next = make_section(handle.get(), kMaxSectionSize + 12 - size).release();
        const std::string packets = packetize_sections(chain.get(), 0x1FFE);

        const std::size_t first_packets = size <= 183 ? 1 : 1 + (size - 183 + 183) / 184;
        std::vector<std::string> sections;
        SectionCollector collector(
            [&](const auto& s) { sections.push_back(bytes_of(s)); });
        ASSERT_EQ(packets.size() % kTsPacketSize, 0u);
        for (std::size_t i = 0; i < packets.size() / kTsPacketSize; ++i) {
            const auto* const packet =
                reinterpret_cast<const std::uint8_t*>(&packets[i * kTsPacketSize]);
            const bool starts = i == 0 || i == first_packets;
            ASSERT_EQ(packet[0], 0x47);
            ASSERT_EQ(packet[1], starts ? 0x5F : 0x1F) << "size " << size;
            ASSERT_EQ(packet[2], 0xFE);
            ASSERT_EQ(packet[3], 0x10 | (i & 0x0F));
            if (starts) {
                ASSERT_EQ(packet[4], 0);
            }
            collector.push(packet);
        }
        ASSERT_EQ(sections, (std::vector{bytes_of(*chain), bytes_of(*chain->p_next)}));
    }
}

TEST(SectionPacketizer, AddsNoCrcToAShortSection) {
    const SectionsPtr section(dvbpsi_NewPSISection(183));
    std::fill(section->p_data, section->p_data + 183, std::uint8_t{0x55});
    section->p_payload_end = section->p_data + 183;
    section->b_syntax_indicator = false;
    const std::string packets = packetize_sections(section.get(), 1);
    EXPECT_EQ(packets.substr(0, 5), std::string("\x47\x40\x01\x10\x00", 5));
    EXPECT_EQ(packets.substr(5), std::string(183, '\x55'));
}

}  // namespace
