#include "tests/support/wire.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "mux/muxer.h"
#include "tests/support/packets_of.h"

using namespace orvel::thrift::dvb_tables;

void Wire::push(const Datagram& datagram) {
    ASSERT_EQ(datagram.bytes.size(), datagram.packets() * kTsPacketSize);
    ASSERT_GE(datagram.packets(), 1u);
    ASSERT_LE(datagram.packets(), 7u);
    ASSERT_GE(datagram.time_ns, free_ns_);
    now_ns_ = datagram.time_ns;
    free_ns_ = now_ns_ + static_cast<std::int64_t>(datagram.packets() *
                                                   the_muxer->packet_interval_ns);
    for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
        push_packet(reinterpret_cast<const std::uint8_t*>(&datagram.bytes[at]));
    }
}

void Wire::push_packet(const std::uint8_t* packet) {
    const std::uint16_t pid = pid_of(packet);
    ASSERT_EQ(packet[0], kSyncByte);
    ASSERT_EQ(packet[1] & 0xA0, 0);
    ASSERT_EQ(packet[3] & 0xF0, kHasPayload);
    ++pids_[pid].packets;
    if (starts_section(packet)) under_way_[pid].clear();
    under_way_[pid].append(packet, packet + kTsPacketSize);
    std::unique_ptr<SectionCollector>& receiver = receivers_[pid];
    if (!receiver) {
        receiver = std::make_unique<SectionCollector>(
            [this, pid](const auto& section) { note(pid, section); });
    }
    const std::uint64_t torn = receiver->torn_sections();
    ASSERT_EQ(continuity_[pid].push(packet), Continuity::in_order) << "PID " << pid;
    receiver->push(packet);
    ASSERT_TRUE(receiver->torn_sections() == torn || may_break_.erase(pid) == 1)
        << "PID " << pid;
    ASSERT_EQ(receiver->crc_errors(), 0u) << "PID " << pid;
}

void Wire::note(std::uint16_t pid, const dvbpsi_psi_section_t& section) {
    Pid& seen = pids_[pid];
    const std::size_t crc = section.b_syntax_indicator ? kCrc32Size : 0;
    const auto [last, is_new] =
        seen.sections.try_emplace({section.p_data, section.p_payload_end + crc}, now_ns_);
    if (is_new) seen.tables += under_way_[pid];
    const Sections& earlier = earlier_[pid];
    const auto before = is_new ? earlier.find(last->first) : last;
    if (before == earlier.end()) return;
    const std::int64_t interval_ns = now_ns_ - before->second;
    last->second = now_ns_;
    seen.shortest_ns = std::min(seen.shortest_ns, interval_ns);
    seen.longest_ns = std::max(seen.longest_ns, interval_ns);
}

void Wire::forget() {
    earlier_.clear();
    for (auto& [pid, seen] : pids_) earlier_[pid].swap(seen.sections);
    pids_.clear();
}

void Wire::expect_new_stream(std::uint16_t pid) {
    receivers_.erase(pid);
    continuity_.erase(pid);
    earlier_.erase(pid);
}

Multiplex Wire::tables(
    const std::map<std::uint16_t, std::uint16_t>& pid_of_program) const {
    PAT announcing;
    for (const auto& [program, pid] : pid_of_program) {
        PATProgram& announced = announcing.programs.emplace_back();
        announced.program_number = program;
        announced.pid = pid;
    }
    std::string pat;
    std::string packets = packets_of(announcing);
    for (const auto& [pid, seen] : pids_) {
        std::string& to = pid == kPatPid ? pat : packets;
        for (std::size_t at = 0; at < seen.tables.size(); at += kTsPacketSize) {
            to += seen.tables.substr(at, kTsPacketSize);
            char& counter = to[to.size() - kTsPacketSize + 3];
            counter = static_cast<char>(kHasPayload | (at / kTsPacketSize & 0x0F));
        }
    }
    Multiplex multiplex = received(packets);
    multiplex.pat = received(pat).pat;
    return multiplex;
}
