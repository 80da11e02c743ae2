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

// Runs of packets with junk between them, junk without sync bytes.
TEST(TsFile, FindsEveryPacketBetweenAnyJunk) {
    const std::string path =
        testing::TempDir() + "kestan_ts_" + std::to_string(getpid()) + ".ts";
    std::mt19937 random(1);
    for (const std::size_t stride : {188U, 192U, 204U}) {
        for (int round = 0; round < 40; ++round) {
            std::string content;
            std::uint32_t packets = 0;
            std::size_t junk_bytes = 0;
            const auto add_junk = [&](std::size_t size) {
                content += std::string(size, '\x55');
                junk_bytes += size;
            };
            // Some files are longer than what is read at a time.
            for (auto runs = random() % 4 + 1; runs != 0; --runs) {
                if (random() % 2 == 0) add_junk(random() % 3000);
                const auto length = random() % (round == 0 ? 10000 : 20) + 5;
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
