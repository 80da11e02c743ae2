#include "tests/support/receiver.h"

#include <algorithm>
#include <utility>

#include <gtest/gtest.h>

std::optional<std::string> SectionReader::push(const std::uint8_t* packet) {
    EXPECT_EQ(packet[0], kSyncByte);
    EXPECT_EQ(packet[1] & 0xA0, 0);
    EXPECT_EQ(packet[3] & 0xF0, kHasPayload);
    const int counter = continuity_counter_of(packet);
    EXPECT_EQ(counter, counter_ ? (*counter_ + 1) % 16 : counter);
    counter_ = counter;
    if (starts_section(packet)) {
        if (!section_.empty()) ++torn;
        EXPECT_EQ(packet[4], 0);
        section_.assign(packet + 5, packet + kTsPacketSize);
    } else {
        EXPECT_FALSE(section_.empty()) << "a section without its beginning";
        section_.append(packet + 4, packet + kTsPacketSize);
    }
    const auto byte = [&](std::size_t at) {
        return static_cast<std::uint8_t>(section_[at]);
    };
    const std::size_t size = 3 + ((byte(1) & 0x0FU) << 8 | byte(2));
    if (section_.size() < size) return std::nullopt;
    EXPECT_LT(section_.size() - size, 184u) << "a packet too many";
    EXPECT_EQ(section_.find_first_not_of('\xFF', size), std::string::npos);
    section_.resize(size);
    return std::exchange(section_, {});
}

void Receiver::push(const Datagram& datagram) {
    EXPECT_EQ(datagram.bytes.size(), datagram.packets() * kTsPacketSize);
    EXPECT_LE(datagram.packets() - 1, 6u);
    EXPECT_GE(datagram.time_ns, free_ns_);
    free_ns_ = datagram.time_ns + static_cast<std::int64_t>(
                                      datagram.packets() * the_muxer->packet_interval_ns);
    for_each_packet(datagram.bytes, [&](const auto* packet) {
        Pid& pid = pids_[pid_of(packet)];
        const std::optional<std::string> section = pid.reader.push(packet);
        EXPECT_LE(pid.reader.torn, 1) << "PID " << pid_of(packet);
        if (!section) return;
        const auto [last, is_new] = pid.sections.emplace(*section, datagram.time_ns);
        const auto before = is_new ? pid.earlier.find(*section) : last;
        if (before == pid.earlier.end()) return;
        const std::int64_t interval_ns = datagram.time_ns - before->second;
        last->second = datagram.time_ns;
        pid.shortest_ns = std::min(pid.shortest_ns, interval_ns);
        pid.longest_ns = std::max(pid.longest_ns, interval_ns);
    });
}

void Receiver::forget() {
    for (auto& [number, pid] : pids_) {
        pid.reader.torn = 0;
        pid = {pid.reader, {}, std::move(pid.sections)};
    }
}
