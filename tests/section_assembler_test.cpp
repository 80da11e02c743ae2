#include "tools/receive/section_assembler.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/packets.h"
#include "tests/support/random_tables.h"
#include "tests/support/sections.h"

namespace {

// A section, and the numbers of the packets that it begins and ends in.
struct Packed {
    std::string bytes;
    std::size_t first = 0;
    std::size_t last = 0;
};

// Packs the sections without a gap between them, into packets with adaptation fields of
// any length.
std::vector<std::string> pack(std::vector<Packed>& sections) {
    std::mt19937 random(1);
    std::string bytes;
    std::vector<std::size_t> starts{0};  // of the sections, and the end of the last one
    for (const Packed& section : sections)
        starts.push_back((bytes += section.bytes).size());
    std::vector<std::string> packets;
    std::vector<std::size_t> packet_of;  // that each byte is in
    while (packet_of.size() < bytes.size()) {
        const std::size_t at = packet_of.size();
        const std::size_t start = *std::lower_bound(starts.begin(), starts.end(), at);
        std::size_t adaptation = random() % 3 == 0 ? random() % 183 : 0;
        // A section must not begin in the last byte: the pointer_field needs one.
        if (start == at + 183 - adaptation) ++adaptation;
        const bool begins = start < std::min(at + 183 - adaptation, bytes.size());
        std::string content;
        if (adaptation > 0) content += static_cast<char>(adaptation - 1);
        if (adaptation > 1) content += '\0' + std::string(adaptation - 2, '\xFF');
        if (begins) content += static_cast<char>(start - at);
        const std::size_t size = std::min(184 - content.size(), bytes.size() - at);
        const std::string packet =
            ts_packet(0x0100, static_cast<int>(packets.size()),
                      content + bytes.substr(at, size), adaptation > 0 ? 0x30 : 0x10);
        packet_of.insert(packet_of.end(), size, packets.size());
        packets.push_back(begins ? with_start(packet) : packet);
    }
    for (std::size_t i = 0; i < sections.size(); ++i) {
        sections[i].first = packet_of[starts[i]];
        sections[i].last = packet_of[starts[i + 1] - 1];
    }
    return packets;
}

TEST(SectionAssembler, FindsEachSectionWhosePacketsHaveAllComeWithItsTime) {
    RandomTables tables(1);
    std::vector<Packed> sections;
    for (int i = 0; i < 100; ++i) {
        sections.push_back({sections_of(tables.pmt(i, tables.below(1000)))[0]});
        sections.push_back({std::string("\x70\x70\x05time!", 8)});
    }
    const std::vector<std::string> packets = pack(sections);
    // Without a loss, and with each of the packets lost or damaged.
    for (std::size_t lost = 0; lost <= packets.size(); ++lost) {
        std::vector<std::pair<std::string, std::size_t>> found, expected;
        PidSections assembled([&](const Section& section, std::int64_t begun) {
            EXPECT_TRUE(section.is_valid());
            found.emplace_back(section.bytes(), begun);
        });
        for (std::size_t i = 0; i < packets.size(); ++i) {
            if (i == lost && lost % 2 == 0) continue;
            const std::string packet = i == lost ? with_error(packets[i]) : packets[i];
            assembled.push(bytes_of(packet), static_cast<std::int64_t>(i));
        }
        for (const auto& [bytes, first, last] : sections)
            if (lost < first || last < lost) expected.emplace_back(bytes, first);
        ASSERT_TRUE(found == expected) << "without packet " << lost;
    }
}

}  // namespace
