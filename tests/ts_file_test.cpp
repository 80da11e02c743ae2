#include "tools/ts_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

std::string numbered_packet(std::uint64_t number, std::size_t stride) {
    std::string packet(stride, '\0');
    packet[0] = kSyncByte;
    for (std::size_t i = 1; i < 5; ++i, number /= 64) {
        packet[i] = static_cast<char>(number % 64);  // never a sync byte
    }
    return packet;
}

// Runs of packets with junk between them, in which one byte in 64 is a sync byte, but
// none in step with the packets before or behind it.
TEST(TsFile, FindsEveryPacketBetweenAnyJunk) {
    const std::string path =
        testing::TempDir() + "kestan_ts_" + std::to_string(getpid()) + ".ts";
    std::mt19937 random(1);
    for (int round = 0; round < 120; ++round) {
        const std::size_t stride = std::array{188U, 192U, 204U}[round % 3];
        // The first file of each kind is longer than what is read at a time.
        const std::size_t scale = round < 3 ? 500 : 1;
        std::string content;
        std::uint64_t packets = 0;
        for (auto runs = random() % 4 + 1; runs != 0; --runs) {
            const std::size_t size = random() % 3000 * scale;
            for (std::size_t left = size; left != 0; --left) {
                const bool is_in_step = left == size || left % stride == 0;
                const bool is_sync = !is_in_step && random() % 64 == 0;
                content += static_cast<char>(is_sync ? kSyncByte : 0);
            }
            for (auto length = random() % 20 * scale + 5; length != 0; --length) {
                content += numbered_packet(packets++, stride);
            }
        }
        const std::size_t junk = content.size() - packets * stride;
        const std::size_t cut = random() % 2 * (random() % (kTsPacketSize - 1) + 1);
        content += numbered_packet(packets, stride).substr(0, cut);
        std::ofstream(path, std::ios::binary) << content;

        TsFile file(path);
        std::uint64_t found = 0;
        while (const std::uint8_t* const packet = file.next()) {
            const std::string expected = numbered_packet(found++, kTsPacketSize);
            ASSERT_EQ(std::string(packet, packet + kTsPacketSize), expected);
        }
        EXPECT_EQ(found, packets);
        EXPECT_EQ(file.packets(), packets);
        EXPECT_EQ(file.stray_bytes(), junk + cut);
        EXPECT_EQ(file.is_cut(), cut != 0);
    }
    std::filesystem::remove(path);
}

}  // namespace
