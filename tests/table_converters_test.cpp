#include "framework/table_converters.h"

#include <cstdint>

#include <gmock/gmock.h>

#include "tables/table_packets.h"
#include "tests/support/fake_framework.h"
#include "tests/support/random_tables.h"
#include "tests/support/receiver.h"
#include "tests/support/sections.h"
#include "thrift/table_refusal.h"

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

// Returns the reason that the converter logs when it refuses the table, or an empty text
// if it accepts the table.
template <typename Table>
std::string refusal(const Table& table) {
    static_cast<void>(fake_framework::take_log());
    const std::string reason = refusal_reason(table).value_or("");
    EXPECT_EQ(convert(table) == nullptr, !reason.empty());
    std::vector<std::string> expected_log;
    if (!reason.empty()) expected_log = {"4 " + reason};
    EXPECT_EQ(fake_framework::take_log(), expected_log);
    return reason;
}

// Expects that `field` accepts its limits and no values beyond them.
template <typename Table>
void expect_range(Table& table, std::int32_t& field, const std::string& where,
                  std::int32_t highest, std::int32_t lowest = 0) {
    const std::int32_t good = field;
    const std::string limits =
        ", " + std::to_string(lowest) + " to " + std::to_string(highest) + " fit";
    for (const std::int32_t value : {highest, lowest}) {
        field = value;
        EXPECT_EQ(refusal(table), "") << where;
    }
    for (const std::int32_t value : {lowest - 1, highest + 1, INT32_MIN, INT32_MAX}) {
        field = value;
        EXPECT_THAT(refusal(table),
                    testing::EndsWith(where + " is " + std::to_string(value) + limits));
    }
    field = good;
}

template <typename Table>
void expect_descriptor_limits(Table& table, std::vector<Descriptor>& descriptors,
                              const std::string& where) {
    descriptors.assign(2, Descriptor());
    descriptors[1].data = std::string(255, '\0');
    expect_range(table, descriptors[1].tag, where + "descriptors[1]: tag", 255);
    descriptors[1].data.push_back('\0');
    EXPECT_EQ(refusal(table), where + "descriptors[1]: data takes 256 bytes, 255 fit");
    descriptors.clear();
}

TEST(TableConverters, AcceptEachFieldWithinItsRangeAndNameTheOneOutOfRange) {
    RandomTables random(3);
    PAT pat = random.pat(3);
    expect_range(pat, pat.transport_stream_id, "PAT: transport_stream_id", 0xFFFF);
    expect_range(pat, pat.version_number, "PAT: version_number", 255);
    expect_range(pat, pat.programs[1].program_number, ": program_number", 0xFFFF);
    pat.programs[2].program_number = 7;
    expect_range(pat, pat.programs[2].pid, "PAT: program 7: pid", 0x1FFF, 1);

    CAT cat = random.cat(20);
    expect_range(cat, cat.version_number, "CAT: version_number", 255);
    expect_descriptor_limits(cat, cat.descriptors, "CAT: ");

    SDT sdt = random.sdt(3, 20);
    expect_range(sdt, sdt.transport_stream_id, "SDT: transport_stream_id", 0xFFFF);
    expect_range(sdt, sdt.original_network_id, "SDT: original_network_id", 0xFFFF);
    expect_range(sdt, sdt.version_number, "SDT: version_number", 255);
    expect_range(sdt, sdt.services[1].service_id, ": service_id", 0xFFFF);
    SDTService& service = sdt.services[2];
    service.service_id = 7;
    expect_range(sdt, service.running_status, "SDT: service 7: running_status", 7);
    expect_descriptor_limits(sdt, service.descriptors, "SDT: service 7: ");

    PMT pmt = random.pmt(102, 0);
    pmt.streams.resize(2);
    PMTStream& stream = pmt.streams[1];
    const std::string in_pmt = "PMT of service 102: ",
                      in_stream = in_pmt + "streams[1]: ";
    expect_range(pmt, pmt.program_number, ": program_number", 0xFFFF);
    expect_range(pmt, pmt.version_number, in_pmt + "version_number", 255);
    expect_range(pmt, pmt.pcr_pid, in_pmt + "pcr_pid", 0x1FFF);
    expect_range(pmt, stream.stream_type, in_stream + "stream_type", 255);
    expect_range(pmt, stream.elementary_pid, in_stream + "elementary_pid", 0x1FFF);
    expect_descriptor_limits(pmt, pmt.descriptors, in_pmt);
    expect_descriptor_limits(pmt, stream.descriptors, in_stream);
}

// Expects that the table goes on air whole, in this number of sections, the first one
// with `size` bytes.
template <typename Table>
void expect_whole(const Table& table, std::size_t count, std::size_t size) {
    const auto converted = convert(table);
    ASSERT_TRUE(converted);
    Sections sections;
    SectionReader reader;
    for_each_packet(table_packets(*converted, 0x1FFE), [&](const auto* packet) {
        EXPECT_EQ(pid_of(packet), 0x1FFE);
        if (const auto section = reader.push(packet)) sections.push_back(*section);
    });
    EXPECT_TRUE(sections == sections_of(table));
    ASSERT_EQ(sections.size(), count);
    EXPECT_EQ(sections[0].size(), size);
}

TEST(TableConverters, AcceptTheLargestTablesAndNothingLarger) {
    RandomTables random(4);
    PAT pat = random.pat(25600);
    expect_whole(pat, 256, 12 + 100 * 4);
    pat.programs.push_back(pat.programs[0]);
    EXPECT_EQ(refusal(pat), "PAT: the table has 25,601 programs, 25,600 fit");

    CAT cat;
    cat.descriptors.resize(256 * 3);  // three fit one section
    for (Descriptor& descriptor : cat.descriptors) descriptor.data.assign(255, 'x');
    expect_whole(cat, 256, 12 + 3 * 257);
    cat.descriptors.push_back(cat.descriptors[0]);
    EXPECT_EQ(refusal(cat), "CAT: descriptors take 257 sections, 256 fit");

    SDT sdt = random.sdt(1, 1004);
    expect_whole(sdt, 1, 1024);
    sdt.services[0].service_id = 7;
    sdt.services[0].descriptors = random.descriptors(1005);
    EXPECT_EQ(refusal(sdt), "SDT: service 7: descriptors take 1,005 bytes, 1,004 fit");
    for (const auto& [in_section, bytes, size] :
         {std::tuple{201U, 0U, 15 + 201 * 5U}, {1, 1004, 1024}}) {
        sdt = random.sdt(256 * in_section, bytes);
        expect_whole(sdt, 256, size);
        sdt.services.emplace_back();
        EXPECT_EQ(refusal(sdt), "SDT: services take 257 sections, 256 fit");
    }

    PMT pmt;
    pmt.program_number = 102;
    pmt.streams.resize(201);
    pmt.descriptors = random.descriptors(1008 - 201 * 5);
    expect_whole(pmt, 1, 1024);
    pmt.descriptors[0].data.push_back('x');
    const std::string too_large =
        "PMT of service 102: descriptors and streams take 1,009 bytes, 1,008 fit";
    EXPECT_EQ(refusal(pmt), too_large);
    pmt.descriptors.clear();
    pmt.streams.resize(1);
    pmt.streams[0].descriptors = random.descriptors(1003);
    expect_whole(pmt, 1, 1024);
    pmt.streams[0].descriptors = random.descriptors(1004);
    EXPECT_EQ(refusal(pmt), too_large);
}

}  // namespace
