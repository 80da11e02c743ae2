#include "framework/table_converters.h"

#include <limits>

#include <gtest/gtest.h>

#include "dvb/section_limits.h"
#include "tests/support/packets_of.h"
#include "tests/support/random_tables.h"
#include "tools/receive/section_collector.h"

using namespace orvel::thrift::dvb_tables;

namespace {

using Sizes = std::vector<std::size_t>;

// The sizes of the sections, in the order of their numbers, and what comes of the table
// on its way to a receiver.
template <typename Table>
Sizes section_sizes(const Table& table) {
    Sizes sizes;
    SectionCollector collector([&](const dvbpsi_psi_section_t& section) {
        EXPECT_EQ(section.i_number, sizes.size());
        sizes.push_back(section.i_length + 3u);
    });
    push_packets(packets_of(table), collector);
    return sizes;
}

template <typename Table>
bool accepted(const Table& table) {
    return !packets_of(table).empty();
}

// `field` accepts its limits and nothing beyond them.
template <typename Table>
void expect_range(Table& table, std::int32_t& field, std::int32_t lowest,
                  std::int32_t highest) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int32_t good = field;
    for (const std::int32_t value :
         {highest, lowest, lowest - 1, highest + 1, limits::min(), limits::max()}) {
        field = value;
        EXPECT_EQ(accepted(table), lowest <= value && value <= highest) << value;
    }
    field = good;
}

template <typename Table>
void expect_descriptor_limits(Table& table, std::vector<Descriptor>& descriptors) {
    descriptors.assign(1, Descriptor());
    descriptors[0].data = std::string(255, '\0');
    expect_range(table, descriptors[0].tag, 0, 255);
    descriptors[0].data.push_back('\0');
    EXPECT_FALSE(accepted(table));
    descriptors.clear();
}

TEST(TableConverters, AcceptEveryFieldJustWithinItsWidth) {
    RandomTables random(3);
    PAT pat = random.pat(3);
    expect_range(pat, pat.transport_stream_id, 0, 0xFFFF);
    expect_range(pat, pat.version_number, 0, 255);
    expect_range(pat, pat.programs[1].program_number, 0, 0xFFFF);
    expect_range(pat, pat.programs[2].pid, 1, 0x1FFF);

    CAT cat = random.cat(20);
    expect_range(cat, cat.version_number, 0, 255);
    expect_descriptor_limits(cat, cat.descriptors);

    SDT sdt = random.sdt(3, 20);
    expect_range(sdt, sdt.transport_stream_id, 0, 0xFFFF);
    expect_range(sdt, sdt.original_network_id, 0, 0xFFFF);
    expect_range(sdt, sdt.version_number, 0, 255);
    expect_range(sdt, sdt.services[1].service_id, 0, 0xFFFF);
    expect_range(sdt, sdt.services[2].running_status, 0, 7);
    expect_descriptor_limits(sdt, sdt.services[1].descriptors);

    PMT pmt = random.pmt(1, 0);
    pmt.streams.resize(2);
    expect_range(pmt, pmt.program_number, 0, 0xFFFF);
    expect_range(pmt, pmt.version_number, 0, 255);
    expect_range(pmt, pmt.pcr_pid, 0, 0x1FFF);
    expect_range(pmt, pmt.streams[0].stream_type, 0, 255);
    expect_range(pmt, pmt.streams[1].elementary_pid, 0, 0x1FFF);
    expect_descriptor_limits(pmt, pmt.descriptors);
    expect_descriptor_limits(pmt, pmt.streams[1].descriptors);
}

TEST(TableConverters, AcceptTheLargestTablesAndNothingLarger) {
    RandomTables random(4);
    PAT pat = random.pat(25600);
    EXPECT_EQ(section_sizes(pat), Sizes(256, 412));
    pat.programs.push_back(pat.programs[0]);
    EXPECT_FALSE(accepted(pat));

    CAT cat;
    cat.descriptors.resize(256 * 3);  // three fit one section
    for (Descriptor& descriptor : cat.descriptors) descriptor.data.assign(255, 'x');
    EXPECT_EQ(section_sizes(cat), Sizes(256, 12 + 3 * 257));
    cat.descriptors.push_back(cat.descriptors[0]);
    EXPECT_FALSE(accepted(cat));

    SDT sdt = random.sdt(256 * 201, 0);  // 201 fit one section
    EXPECT_EQ(section_sizes(sdt), Sizes(256, 15 + 201 * 5));
    sdt.services.push_back(sdt.services[0]);
    EXPECT_FALSE(accepted(sdt));

    SDT full = random.sdt(256, 1004);  // each service fills its section
    EXPECT_EQ(section_sizes(full), Sizes(256, 1024));
    full.services.resize(1);
    full.services[0].descriptors = random.descriptors(1005);
    EXPECT_FALSE(accepted(full));

    PMT pmt;
    pmt.streams.resize(201);
    pmt.descriptors = random.descriptors(1008 - 201 * 5);
    EXPECT_EQ(section_sizes(pmt), Sizes(1, 1024));
    pmt.descriptors[0].data.push_back('x');
    EXPECT_FALSE(accepted(pmt));
    pmt.streams.clear();
    pmt.descriptors = random.descriptors(1009);
    EXPECT_FALSE(accepted(pmt));
}

}  // namespace
