#include "tools/receive/section_assembler.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dvb/ts_packet.h"
#include "tests/support/random_tables.h"
#include "tests/support/sections.h"

namespace {

// A section, and the numbers of the packets that it begins and ends in.
struct Packed {
    std::string bytes;
    std::size_t first;
    std::size_t last;

    bool operator==(const Packed& other) const {
        return bytes == other.bytes && first == other.first;
    }
};

// Packs sections without a gap between them, into packets with adaptation fields of any
// length.
struct Packer {
    void pack(std::vector<std::string> sections) {
        std::vector<std::size_t> starts;
        std::string bytes;
        for (const std::string& section : sections) {
            starts.push_back(bytes.size());
            bytes += section;
            packed.push_back({section, 0, 0});
        }
        for (std::size_t at = 0; at < bytes.size();) {
            std::size_t adaptation = random() % 3 == 0 ? random() % 183 : 0;
            const auto start = std::lower_bound(starts.begin(), starts.end(), at);
            const std::size_t next = start == starts.end() ? bytes.size() : *start;
            // A section must not begin in the last byte: the pointer_field needs one.
            if (next == at + 183 - adaptation) ++adaptation;
            const bool begins = start != starts.end() && next < at + 183 - adaptation;
            std::string packet{'\x47', begins ? '\x41' : '\x01', '\0',
                               static_cast<char>((adaptation > 0 ? 0x30 : 0x10) |
                                                 (packets.size() & 0x0F))};
            if (adaptation > 0) packet += static_cast<char>(adaptation - 1);
            if (adaptation > 1) packet += '\0' + std::string(adaptation - 2, '\xFF');
            if (begins) packet += static_cast<char>(next - at);
            const std::size_t size =
                std::min(kTsPacketSize - packet.size(), bytes.size() - at);
            packet += bytes.substr(at, size);
            packet.resize(kTsPacketSize, '\xFF');
            for (std::size_t i = 0; i < packed.size(); ++i) {
                if (starts[i] >= at && starts[i] < at + size)
                    packed[i].first = packets.size();
                const std::size_t end = starts[i] + packed[i].bytes.size();
                if (end > at && end <= at + size) packed[i].last = packets.size();
            }
            packets.push_back(packet);
            at += size;
        }
    }

    std::mt19937 random{1};
    std::vector<Packed> packed;
    std::vector<std::string> packets;
};

TEST(SectionAssembler, FindsEachSectionWhosePacketsHaveAllComeWithItsTime) {
    RandomTables tables(1);
    std::vector<std::string> sections;
    for (int i = 0; i < 100; ++i) {
        sections.push_back(sections_of(tables.pmt(i, tables.below(1000)))[0]);
        sections.push_back(std::string("\x70\x70\x05time!", 8));
    }
    Packer packer;
    packer.pack(sections);
    // Without a loss, and with each of the packets lost or damaged.
    for (std::size_t lost = 0; lost <= packer.packets.size(); ++lost) {
        std::vector<Packed> found;
        PidSections assembled([&](const Section& section, std::int64_t begun) {
            EXPECT_TRUE(section.is_valid());
            const auto first = static_cast<std::size_t>(begun);
            found.push_back({std::string(section.bytes()), first, 0});
        });
        for (std::size_t i = 0; i < packer.packets.size(); ++i) {
            std::string packet = packer.packets[i];
            if (i == lost) packet[1] = static_cast<char>(packet[1] | 0x80);
            if (i == lost && lost % 2 == 0) continue;
            assembled.push(reinterpret_cast<const std::uint8_t*>(packet.data()),
                           static_cast<std::int64_t>(i));
        }
        std::vector<Packed> expected = packer.packed;
        expected.erase(std::remove_if(expected.begin(), expected.end(),
                                      [&](const Packed& section) {
                                          return section.first <= lost &&
                                                 lost <= section.last;
                                      }),
                       expected.end());
        ASSERT_TRUE(found == expected) << "without packet " << lost;
    }
}

}  // namespace
