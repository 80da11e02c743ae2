#include "tools/receive/ts_file.h"

#include <random>
#include <sstream>

#include <gtest/gtest.h>

namespace {

std::string numbered_packet(std::uint64_t number, std::size_t stride) {
    std::string packet = char{kSyncByte} + std::to_string(number);
    packet.resize(stride);
    return packet;
}

// There is junk between runs of packets. One byte in 64 of it is a sync byte, but none is
// in step with the packets before or after it.
TEST(TsFile, FindsEveryPacketBetweenAnyJunk) {
    std::mt19937 random(1);
    for (unsigned round = 0; round < 120; ++round) {
        const std::size_t stride = std::array{188U, 192U, 204U}[round % 3];
        // The first file of each kind is longer than what is read at a time.
        const std::size_t scale = round < 3 ? 500 : 1;
        std::string content;
        std::uint64_t packets = 0;
        for (auto runs = random() % 4 + 1; runs != 0; --runs) {
            const std::size_t size = random() % 3000 * scale;
            for (std::size_t left = size; left != 0; --left) {
                const bool is_free = left != size && left % stride != 0;
                content +=
                    static_cast<char>(is_free && random() % 64 == 0 ? kSyncByte : 0);
            }
            for (const auto end = packets + random() % 20 * scale + 5; packets != end;) {
                content += numbered_packet(packets++, stride);
            }
        }
        const std::size_t cut = random() % 2 * (random() % (kTsPacketSize - 1) + 1);
        content += numbered_packet(packets, stride).substr(0, cut);

        std::istringstream in(content);
        TsFile file(in, "");
        std::uint64_t found = 0;
        while (const std::uint8_t* const packet = file.next()) {
            const std::string expected = numbered_packet(found++, kTsPacketSize);
            ASSERT_EQ(std::string(packet, packet + kTsPacketSize), expected);
        }
        EXPECT_EQ(found, packets);
        EXPECT_EQ(file.packets(), packets);
        EXPECT_EQ(file.stray_bytes(), content.size() - packets * stride);
        EXPECT_EQ(file.is_cut(), cut != 0);
    }
}

}  // namespace
