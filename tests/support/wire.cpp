#include "tests/support/wire.h"

#include <gtest/gtest.h>

#include "framework/psi_si.h"
#include "framework/section_limits.h"
#include "tables/section_packetizer.h"
#include "tools/table_collector.h"

namespace {

std::string bytes_of(const dvbpsi_psi_section_t& section) {
    const std::size_t crc = section.b_syntax_indicator ? kCrc32Size : 0;
    return {section.p_data, section.p_payload_end + crc};
}

std::string announce(const std::map<std::uint16_t, std::uint16_t>& pid_of_program) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    const PatPtr pat(dvbpsi_pat_new(0, 0, true));
    for (const auto& [program, pid] : pid_of_program) {
        dvbpsi_pat_program_add(pat.get(), program, pid);
    }
    const SectionsPtr sections(
        dvbpsi_pat_sections_generate(handle.get(), pat.get(), 100));
    return packetize_sections(sections.get(), kPatPid);
}

}  // namespace

void Wire::push(const std::string& datagram) {
    ASSERT_EQ(datagram.size() % kTsPacketSize, 0u);
    ASSERT_GE(datagram.size(), kTsPacketSize);
    ASSERT_LE(datagram.size(), 7 * kTsPacketSize);
    packets_ += datagram;
    for (std::size_t at = 0; at < datagram.size(); at += kTsPacketSize) {
        push_packet(reinterpret_cast<const std::uint8_t*>(&datagram[at]));
    }
}

void Wire::push_packet(const std::uint8_t* packet) {
    const std::uint16_t pid = pid_of(packet);
    ASSERT_EQ(packet[0], kSyncByte);
    ASSERT_EQ(packet[1] & 0xA0, 0);
    ASSERT_EQ(packet[3] & 0xF0, kHasPayload);
    Pid& seen = pids_[pid];
    ++seen.packets;
    std::unique_ptr<SectionCollector>& receiver = receivers_[pid];
    if (!receiver) {
        receiver = std::make_unique<SectionCollector>([this, pid](const auto& section) {
            pids_[pid].sections.insert(bytes_of(section));
        });
    }
    const std::uint64_t torn = receiver->torn_sections();
    receiver->push(packet);
    ASSERT_TRUE(receiver->torn_sections() == torn || may_break_.erase(pid) == 1)
        << "PID " << pid;
    ASSERT_EQ(receiver->continuity_errors(), 0u) << "PID " << pid;
    ASSERT_EQ(receiver->crc_errors(), 0u) << "PID " << pid;
}

Multiplex Wire::tables(
    const std::map<std::uint16_t, std::uint16_t>& pid_of_program) const {
    TableCollector others;
    TableCollector pmts;
    const auto push_all = [](TableCollector& collector, const std::string& packets,
                             bool with_pat) {
        for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
            const auto* const packet =
                reinterpret_cast<const std::uint8_t*>(&packets[at]);
            if (with_pat || pid_of(packet) != kPatPid) collector.push(packet);
        }
    };
    push_all(others, packets_, true);
    push_all(pmts, announce(pid_of_program), true);
    push_all(pmts, packets_, false);
    Multiplex multiplex = others.tables();
    multiplex.pmts = pmts.tables().pmts;
    return multiplex;
}

void Wire::expect_new_stream(std::uint16_t pid) {
    receivers_.erase(pid);
}

void Wire::forget() {
    pids_.clear();
    packets_.clear();
}
