#include "framework/table_converters.h"

#include <limits>

#include <gtest/gtest.h>

#include "tables/table_packets.h"
#include "tests/support/random_tables.h"
#include "tests/support/receiver.h"
#include "tests/support/sections.h"

using namespace orvel::thrift::dvb_tables;

namespace {

PatPtr convert(const PAT& pat) {
    return PatPtr(t2dPAT(pat));
}
CatPtr convert(const CAT& cat) {
    return CatPtr(t2dCAT(cat));
}
SdtPtr convert(const SDT& sdt) {
    return SdtPtr(t2dSDT(sdt));
}
PmtPtr convert(const PMT& pmt) {
    return PmtPtr(t2dPMT(pmt));
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
        EXPECT_EQ(convert(table) != nullptr, lowest <= value && value <= highest)
            << value;
    }
    field = good;
}

template <typename Table>
void expect_descriptor_limits(Table& table, std::vector<Descriptor>& descriptors) {
    descriptors.assign(1, Descriptor());
    descriptors[0].data = std::string(255, '\0');
    expect_range(table, descriptors[0].tag, 0, 255);
    descriptors[0].data.push_back('\0');
    EXPECT_FALSE(convert(table));
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

// The table goes on air whole, in so many sections, the first of which has `size` bytes;
// it is refused once `grow` has made it larger.
template <typename Table, typename Grow>
void expect_largest(Table table, std::size_t count, std::size_t size, Grow grow) {
    const auto converted = convert(table);
    ASSERT_TRUE(converted);
    const std::string packets = table_packets(*converted, 0x1FFE);
    Sections sections;
    SectionReader reader;
    for_each_packet(packets, [&](const auto* packet) {
        EXPECT_EQ(pid_of(packet), 0x1FFE);
        if (const auto section = reader.push(packet)) sections.push_back(*section);
    });
    EXPECT_TRUE(sections == sections_of(table));
    EXPECT_EQ(sections.size(), count);
    EXPECT_EQ(sections[0].size(), size);
    grow(table);
    EXPECT_FALSE(convert(table));
}

TEST(TableConverters, AcceptTheLargestTablesAndNothingLarger) {
    RandomTables random(4);
    expect_largest(random.pat(25600), 256, 12 + 100 * 4,
                   [](PAT& pat) { pat.programs.emplace_back(pat.programs[0]); });

    CAT cat;
    cat.descriptors.resize(256 * 3);  // three fit one section
    for (Descriptor& descriptor : cat.descriptors) descriptor.data.assign(255, 'x');
    expect_largest(cat, 256, 12 + 3 * 257, [](CAT& larger) {
        larger.descriptors.resize(769, larger.descriptors[0]);
    });

    const auto add_service = [](SDT& sdt) { sdt.services.emplace_back(); };
    expect_largest(random.sdt(256 * 201, 0), 256, 15 + 201 * 5, add_service);
    expect_largest(random.sdt(256, 1004), 256, 1024, add_service);
    expect_largest(random.sdt(1, 1004), 1, 1024, [&](SDT& sdt) {
        sdt.services[0].descriptors = random.descriptors(1005);
    });

    PMT pmt;
    pmt.streams.resize(201);
    pmt.descriptors = random.descriptors(1008 - 201 * 5);
    expect_largest(pmt, 1, 1024,
                   [](PMT& larger) { larger.descriptors[0].data.push_back('x'); });
    pmt.streams.resize(1);
    pmt.descriptors.clear();
    pmt.streams[0].descriptors = random.descriptors(1003);
    expect_largest(pmt, 1, 1024, [&](PMT& larger) {
        larger.streams[0].descriptors = random.descriptors(1004);
    });
}

}  // namespace
