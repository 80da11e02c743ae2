#include "tools/receive/table_import.h"

#include <algorithm>
#include <random>

#include <boost/crc.hpp>
#include <gtest/gtest.h>

#include "tests/support/memory_file.h"
#include "tests/support/packets_of.h"
#include "tests/support/random_tables.h"
#include "tools/json/multiplex_file.h"
#include "tools/json/multiplex_json.h"
#include "tools/receive/section_collector.h"

namespace {

// ISO/IEC 13818-1, annex A.
constexpr auto crc_32 = boost::crc<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>;

std::vector<std::string> sections_of(const std::string& packets) {
    std::vector<std::string> sections;
    SectionCollector collector([&](const dvbpsi_psi_section_t& section) {
        sections.emplace_back(section.p_data, section.p_data + 3 + section.i_length);
    });
    push_packets(packets, collector);
    return sections;
}

// The section with another table_id and with the CRC_32 that then is right.
std::string with_table_id(std::string section, std::uint8_t table_id) {
    section[0] = static_cast<char>(table_id);
    const std::uint32_t crc = crc_32(section.data(), section.size() - 4);
    for (int byte = 0; byte < 4; ++byte) {
        section[section.size() - 1 - byte] = static_cast<char>(crc >> (8 * byte));
    }
    return section;
}

// With the JSON of the tables read again: that is what an import is for.
TableImport import_bytes(const std::string& bytes) {
    TableImport import = import_tables(memory_file(bytes));
    const std::string json = multiplex_to_json(import.tables).dump();
    EXPECT_TRUE(read_multiplex_file(memory_file(json)) == import.tables) << json;
    return import;
}

TEST(TableImport, FindsTheTablesOfStreamsAndOfSectionsInAnyOrder) {
    RandomTables random(1);
    Multiplex tables;
    tables.pat = random.pat(150);
    for (auto& program : tables.pat->programs) program.program_number = 0;
    for (const int twice : {3, 140}) {
        tables.pat->programs[twice].program_number = 7;
        tables.pat->programs[twice].pid = kPmtPid;
    }
    tables.cat = random.cat(3000);
    tables.sdt = random.sdt(20, 200);
    tables.pmts.push_back({kPmtPid, random.pmt(7, 900)});
    std::string stream = packets_of(*tables.pat) + packets_of(*tables.cat) +
                         packets_of(*tables.sdt) + packets_of(tables.pmts[0].pmt);
    std::vector<std::string> sections = sections_of(stream);
    const std::string sdt_other =
        with_table_id(sections_of(packets_of(random.sdt(1, 9)))[0], 0x46);
    std::string packet = packets_of(random.sdt(1, 9));
    stream += packet.replace(5, sdt_other.size(), sdt_other);

    const TableImport of_stream = import_bytes(stream);
    EXPECT_TRUE(of_stream.tables == tables);
    EXPECT_EQ(of_stream.packets, stream.size() / kTsPacketSize);
    EXPECT_EQ(of_stream.sections + of_stream.homeless_pmts + of_stream.stray_bytes, 0U);

    sections.push_back(sdt_other);
    sections.push_back(sections_of(packets_of(random.pmt(8, 100)))[0]);
    std::mt19937 order(1);
    for (int round = 0; round < 10; ++round) {
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
