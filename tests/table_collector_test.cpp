#include "tools/table_collector.h"

#include <gtest/gtest.h>

#include "tables/section_packetizer.h"

namespace {

constexpr std::uint16_t kPmtPid = 0x100;

void push(TableCollector& collector, const SectionsPtr& sections, std::uint16_t pid) {
    const std::string packets = packetize_sections(sections.get(), pid);
    for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
        collector.push(reinterpret_cast<const std::uint8_t*>(&packets[at]));
    }
}

// A section with a right CRC_32 whose program_info_length says `length`, where 6 is true.
SectionsPtr pmt_with_program_info_of(int length) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    const PmtPtr pmt(dvbpsi_pmt_new(1, 0, true, 0x101));
    std::uint8_t data[] = {1, 2, 3, 4};
    dvbpsi_pmt_descriptor_add(pmt.get(), 0x80, sizeof data, data);
    SectionsPtr section(dvbpsi_pmt_sections_generate(handle.get(), pmt.get()));
    section->p_payload_start[2] = static_cast<std::uint8_t>(0xF0 | length >> 8);
    section->p_payload_start[3] = static_cast<std::uint8_t>(length);
    dvbpsi_BuildPSISection(handle.get(), section.get());
    return section;
}

TEST(TableCollector, PassesOverAPmtThatPointsPastItsEnd) {
    for (const auto& [length, found] : {std::pair{6, 1}, {7, 0}, {0xFFF, 0}}) {
        const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
        const PatPtr pat(dvbpsi_pat_new(1, 0, true));
        dvbpsi_pat_program_add(pat.get(), 1, kPmtPid);
        TableCollector collector;
        push(collector,
             SectionsPtr(dvbpsi_pat_sections_generate(handle.get(), pat.get(), 100)), 0);
        push(collector, pmt_with_program_info_of(length), kPmtPid);
        EXPECT_EQ(collector.tables().pmts.size(), static_cast<std::size_t>(found))
            << length;
    }
}

}  // namespace
