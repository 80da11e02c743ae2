#include "tools/receive/table_import.h"

#include <algorithm>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "dvb/table_kind.h"
#include "dvb/ts_packet.h"
#include "tests/support/memory_file.h"
#include "tests/support/packets.h"
#include "tests/support/random_tables.h"
#include "tests/support/sections.h"

namespace {

constexpr std::uint16_t kPmtPid = 0x1FFE;

TEST(TableImport, FindsTheLastTablesOfStreamsAndThoseOfSectionsInAnyOrder) {
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
    std::string sdt_other = sections_of(random.sdt(1, 9))[0];
    sdt_other[0] = '\x46';
    sdt_other = sealed(sdt_other.substr(0, sdt_other.size() - 4));
    std::string stream;
    std::map<int, int> counters;
    Sections sections;
    for (const auto& [of_table, pid] : {std::pair(sections_of(*tables.pat), kPatPid),
                                        std::pair(sections_of(*tables.cat), kCatPid),
                                        std::pair(sections_of(*tables.sdt), kSdtPid),
                                        std::pair(Sections{sdt_other}, kSdtPid)}) {
        stream += section_packets(of_table, pid, counters[pid]);
        sections.insert(sections.end(), of_table.begin(), of_table.end());
    }
    auto pmt = random.pmt(7, 900);
    for (const std::int32_t version : {7, 8, 3}) {
        pmt.version_number = version;
        pmt.pcr_pid = 0x100 + version;
        stream += section_packets(sections_of(pmt), kPmtPid, counters[kPmtPid]);
    }
    sections.push_back(sections_of(pmt)[0]);
    tables.pmts.push_back({kPmtPid, pmt});

    const TableImport of_stream = import_tables(memory_file(stream));
    EXPECT_TRUE(of_stream.tables == tables);
    EXPECT_EQ(of_stream.packets, stream.size() / kTsPacketSize);
    EXPECT_EQ(of_stream.sections + of_stream.homeless_pmts + of_stream.stray_bytes, 0U);

    sections.push_back(sections_of(random.pmt(8, 100))[0]);
    std::mt19937 order(1);
    for (std::size_t round = 0; round < 10; ++round) {
        std::shuffle(sections.begin(), sections.end(), order);
        std::string file = sections[0] + std::string("\x70\x70\x05time!\xFF\xFF", 10);
        for (std::size_t i = 1; i < sections.size(); ++i) file += sections[i];
        std::string wrong = sections[0];
        ++wrong[wrong.size() / 2];
        const std::string cut = sections[0].substr(0, sections[0].size() - 1 - round);

        const TableImport of_sections = import_tables(memory_file(file + wrong + cut));
        EXPECT_TRUE(of_sections.tables == tables);
        EXPECT_EQ(of_sections.sections, sections.size() + 1);
        EXPECT_EQ(of_sections.homeless_pmts, 1U);
        EXPECT_EQ(of_sections.stray_bytes, wrong.size() + cut.size());
        EXPECT_TRUE(of_sections.is_cut);
        EXPECT_EQ(of_sections.packets, 0U);
    }
}

}  // namespace
