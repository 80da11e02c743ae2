#include "tools/ts_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

std::string numbered_packet(std::uint32_t number, std::size_t stride) {
    std::string packet(stride, '\0');
    packet[0] = kSyncByte;
    packet.replace(1, sizeof number, reinterpret_cast<const char*>(&number),
                   sizeof number);
    return packet;
}

// Runs of packets with junk between them, in which one byte in 64 is a sync byte, but
// none in step with the packets before or behind it.
TEST(TsFile, FindsEveryPacketBetweenAnyJunk) {
    const std::string path =
        testing::TempDir() + "kestan_ts_" + std::to_string(getpid()) + ".ts";
    std::mt19937 random(1);
    for (const std::size_t stride : {188U, 192U, 204U}) {
        for (int round = 0; round < 40; ++round) {
            // The first file of each kind is longer than what is read at a time.
            const std::size_t longest_junk = round == 0 ? 5000000 : 3000;
            const std::size_t longest_run = round == 0 ? 10000 : 20;
            std::string content;
            std::uint32_t packets = 0;
            std::size_t junk_bytes = 0;
            const auto add_junk = [&](std::size_t size) {
                for (std::size_t i = 0; i < size; ++i) {
                    const bool is_in_step = i == 0 || (size - i) % stride == 0;
                    const bool is_sync = !is_in_step && random() % 64 == 0;
                    content += static_cast<char>(is_sync ? kSyncByte : 0);
                }
                junk_bytes += size;
            };
            for (auto runs = random() % 4 + 1; runs != 0; --runs) {
                if (round == 0 || random() % 2 == 0) add_junk(random() % longest_junk);
                const auto length = random() % longest_run + 5;
                for (auto i = length; i != 0; --i) {
                    content += numbered_packet(packets++, stride);
                }
            }
            const bool is_cut = random() % 2 == 0;
            if (is_cut) {
                const auto left = random() % (kTsPacketSize - 1) + 1;
                content += numbered_packet(packets, stride).substr(0, left);
                junk_bytes += left;
            }
            std::ofstream(path, std::ios::binary) << content;

            TsFile file(path);
            std::uint32_t found = 0;
            while (const std::uint8_t* const packet = file.next()) {
                const std::string expected = numbered_packet(found++, kTsPacketSize);
                ASSERT_EQ(std::string(packet, packet + kTsPacketSize), expected);
            }
            EXPECT_EQ(found, packets);
            EXPECT_EQ(file.packets(), packets);
            EXPECT_EQ(file.stray_bytes(), junk_bytes);
            EXPECT_EQ(file.is_cut(), is_cut);
        }
    }
    std::filesystem::remove(path);
}

}  // namespace
