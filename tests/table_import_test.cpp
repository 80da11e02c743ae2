#include "tools/receive/table_import.h"

#include <algorithm>
#include <random>

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include "dvb/table_kind.h"
#include "dvb/ts_packet.h"
#include "tests/support/memory_file.h"
#include "tests/support/random_tables.h"
#include "tests/support/sections.h"
#include "tools/json/multiplex_file.h"
#include "tools/json/multiplex_json.h"

namespace {

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

constexpr std::uint16_t kPmtPid = 0x1FFE;

std::string packets_of(const Sections& sections, std::uint16_t pid) {
    std::string packets;
    for (const std::string& section : sections) {
        const std::string payload = '\0' + section;  // pointer_field 0
        for (std::size_t at = 0; at < payload.size(); at += 184) {
            const std::size_t counter = packets.size() / kTsPacketSize & 0x0F;
            packets += {'\x47', static_cast<char>(pid >> 8 | (at == 0 ? 0x40 : 0)),
                        static_cast<char>(pid), static_cast<char>(0x10 | counter)};
            packets += payload.substr(at, 184);
            packets.resize(
                (packets.size() + kTsPacketSize - 1) / kTsPacketSize * kTsPacketSize,
                '\xFF');
        }
    }
    return packets;
}

// Returns the section with another table_id and a valid CRC_32.
std::string with_table_id(std::string section, std::uint8_t table_id) {
    section[0] = static_cast<char>(table_id);
    const std::uint32_t crc = crc_32(section.data(), section.size() - 4);
    for (std::size_t byte = 0; byte < 4; ++byte) {
        section[section.size() - 1 - byte] = static_cast<char>(crc >> (8 * byte));
    }
    return section;
}

// Imports the bytes. Also writes the tables as JSON and expects to read the same from it.
TableImport import_bytes(const std::string& bytes) {
    TableImport import = import_tables(memory_file(bytes));
    const std::string json = multiplex_to_json(import.tables).dump();
    EXPECT_TRUE(read_multiplex_file(memory_file(json)) == import.tables) << json;
    return import;
}

TEST(TableImport, TakesTheLastVersionOfAPmtThatChanges) {
    RandomTables random(1);
    const auto pat = random.pat(1);
    const auto service = pat.programs[0].program_number;
    const auto pid = static_cast<std::uint16_t>(pat.programs[0].pid);
    auto pmt = random.pmt(service, 300);
    std::string stream = packets_of(sections_of(pat), kPatPid);
    for (const std::int32_t version : {7, 8, 3}) {
        pmt.version_number = version;
        pmt.pcr_pid = 0x100 + version;
        stream += packets_of(sections_of(pmt), pid);
    }
    const TableImport import = import_bytes(stream);
    ASSERT_EQ(import.tables.pmts.size(), 1U);
    EXPECT_EQ(import.tables.pmts[0].pmt, pmt);
}

TEST(TableImport, FindsTheTablesOfStreamsAndOfSectionsInAnyOrder) {
    RandomTables random(1);
    Multiplex tables;
    tables.pat = random.pat(150);
    for (auto& program : tables.pat->programs) program.program_number = 0;
    for (const std::size_t twice : {3U, 140U}) {
        tables.pat->programs[twice].program_number = 7;
        tables.pat->programs[twice].pid = kPmtPid;
    }
    tables.cat = random.cat(3000);
    tables.sdt = random.sdt(20, 200);
    tables.pmts.push_back({kPmtPid, random.pmt(7, 900)});
    const std::string sdt_other = with_table_id(sections_of(random.sdt(1, 9))[0], 0x46);
    std::string stream;
    Sections sections;
    for (const auto& [of_table, pid] :
         {std::pair(sections_of(*tables.pat), kPatPid),
          std::pair(sections_of(*tables.cat), kCatPid),
          std::pair(sections_of(*tables.sdt), kSdtPid),
          std::pair(sections_of(tables.pmts[0].pmt), kPmtPid)}) {
        stream += packets_of(of_table, pid);
        sections.insert(sections.end(), of_table.begin(), of_table.end());
    }
    stream += packets_of({sdt_other}, kSdtPid);

    const TableImport of_stream = import_bytes(stream);
    EXPECT_TRUE(of_stream.tables == tables);
    EXPECT_EQ(of_stream.packets, stream.size() / kTsPacketSize);
    EXPECT_EQ(of_stream.sections + of_stream.homeless_pmts + of_stream.stray_bytes, 0U);

    sections.push_back(sdt_other);
    sections.push_back(sections_of(random.pmt(8, 100))[0]);
    std::mt19937 order(1);
    for (std::size_t round = 0; round < 10; ++round) {
        std::shuffle(sections.begin(), sections.end(), order);
        std::string file = sections[0] + std::string("\x70\x70\x05time!\xFF\xFF", 10);
        for (std::size_t i = 1; i < sections.size(); ++i) file += sections[i];
        std::string wrong = sections[0];
        ++wrong[wrong.size() / 2];
        const std::string cut = sections[0].substr(0, sections[0].size() - 1 - round);

        const TableImport of_sections = import_bytes(file + wrong + cut);
        EXPECT_TRUE(of_sections.tables == tables);
        EXPECT_EQ(of_sections.sections, sections.size() + 1);
        EXPECT_EQ(of_sections.homeless_pmts, 1U);
        EXPECT_EQ(of_sections.stray_bytes, wrong.size() + cut.size());
        EXPECT_TRUE(of_sections.is_cut);
        EXPECT_EQ(of_sections.packets, 0U);
    }
}

}  // namespace
