#include "framework/table_converters.h"

#include <limits>

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
                  std::int32_t lowest, std::int32_t highest) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int32_t good = field;
    for (const std::int32_t value :
         {highest, lowest, lowest - 1, highest + 1, limits::min(), limits::max()}) {
        field = value;
        const bool fits = lowest <= value && value <= highest;
        const std::string reason = where + " is " + std::to_string(value) + ", " +
                                   std::to_string(lowest) + " to " +
                                   std::to_string(highest) + " fit";
        EXPECT_THAT(refusal(table), testing::EndsWith(fits ? "" : reason));
        EXPECT_EQ(refusal(table).empty(), fits);
    }
    field = good;
}

template <typename Table>
void expect_descriptor_limits(Table& table, std::vector<Descriptor>& descriptors,
                              const std::string& where) {
    descriptors.assign(2, Descriptor());
    descriptors[1].data = std::string(255, '\0');
    expect_range(table, descriptors[1].tag, where + "descriptors[1]: tag", 0, 255);
    descriptors[1].data.push_back('\0');
    EXPECT_EQ(refusal(table), where + "descriptors[1]: data takes 256 bytes, 255 fit");
    descriptors.clear();
}

TEST(TableConverters, AcceptEachFieldWithinItsRangeAndNameTheOneOutOfRange) {
    RandomTables random(3);
    PAT pat = random.pat(3);
    expect_range(pat, pat.transport_stream_id, "PAT: transport_stream_id", 0, 0xFFFF);
    expect_range(pat, pat.version_number, "PAT: version_number", 0, 255);
    expect_range(pat, pat.programs[1].program_number, ": program_number", 0, 0xFFFF);
    pat.programs[2].program_number = 7;
    expect_range(pat, pat.programs[2].pid, "PAT: program 7: pid", 1, 0x1FFF);

    CAT cat = random.cat(20);
    expect_range(cat, cat.version_number, "CAT: version_number", 0, 255);
    expect_descriptor_limits(cat, cat.descriptors, "CAT: ");

    SDT sdt = random.sdt(3, 20);
    expect_range(sdt, sdt.transport_stream_id, "SDT: transport_stream_id", 0, 0xFFFF);
    expect_range(sdt, sdt.original_network_id, "SDT: original_network_id", 0, 0xFFFF);
    expect_range(sdt, sdt.version_number, "SDT: version_number", 0, 255);
    expect_range(sdt, sdt.services[1].service_id, ": service_id", 0, 0xFFFF);
    sdt.services[2].service_id = 7;
    expect_range(sdt, sdt.services[2].running_status, "SDT: service 7: running_status", 0,
                 7);
    expect_descriptor_limits(sdt, sdt.services[2].descriptors, "SDT: service 7: ");

    PMT pmt = random.pmt(102, 0);
    pmt.streams.resize(2);
    const std::string in_pmt = "PMT of service 102: ";
    expect_range(pmt, pmt.program_number, ": program_number", 0, 0xFFFF);
    expect_range(pmt, pmt.version_number, in_pmt + "version_number", 0, 255);
    expect_range(pmt, pmt.pcr_pid, in_pmt + "pcr_pid", 0, 0x1FFF);
    expect_range(pmt, pmt.streams[0].stream_type, in_pmt + "streams[0]: stream_type", 0,
                 255);
    expect_range(pmt, pmt.streams[1].elementary_pid,
                 in_pmt + "streams[1]: elementary_pid", 0, 0x1FFF);
    expect_descriptor_limits(pmt, pmt.descriptors, in_pmt);
    expect_descriptor_limits(pmt, pmt.streams[1].descriptors, in_pmt + "streams[1]: ");
}

// Expects that the table goes on air whole, in this number of sections, the first one
// with `size` bytes. Then expects that it is refused for `reason` after `grow` has made
// it larger.
template <typename Table, typename Grow>
void expect_largest(Table table, std::size_t count, std::size_t size, Grow grow,
                    const std::string& reason) {
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
    grow(table);
    EXPECT_EQ(refusal(table), reason);
}

TEST(TableConverters, AcceptTheLargestTablesAndNothingLarger) {
    RandomTables random(4);
    expect_largest(
        random.pat(25600), 256, 12 + 100 * 4,
        [](PAT& pat) { pat.programs.push_back(pat.programs[0]); },
        "PAT: the table has 25,601 programs, 25,600 fit");

    CAT cat;
    cat.descriptors.resize(256 * 3);  // three fit one section
    for (Descriptor& descriptor : cat.descriptors) descriptor.data.assign(255, 'x');
    expect_largest(
        cat, 256, 12 + 3 * 257,
        [](CAT& larger) { larger.descriptors.resize(769, larger.descriptors[0]); },
        "CAT: descriptors take 257 sections, 256 fit");

    const auto add_service = [](SDT& sdt) { sdt.services.emplace_back(); };
    const std::string reason = "SDT: services take 257 sections, 256 fit";
    expect_largest(random.sdt(256 * 201, 0), 256, 15 + 201 * 5, add_service, reason);
    expect_largest(random.sdt(256, 1004), 256, 1024, add_service, reason);
    expect_largest(
        random.sdt(1, 1004), 1, 1024,
        [&](SDT& sdt) {
            sdt.services[0].service_id = 7;
            sdt.services[0].descriptors = random.descriptors(1005);
        },
        "SDT: service 7: descriptors take 1,005 bytes, 1,004 fit");

    PMT pmt;
    pmt.program_number = 102;
    pmt.streams.resize(201);
    pmt.descriptors = random.descriptors(1008 - 201 * 5);
    const std::string too_large =
        "PMT of service 102: descriptors and streams take 1,009 bytes, 1,008 fit";
    expect_largest(
        pmt, 1, 1024, [](PMT& larger) { larger.descriptors[0].data.push_back('x'); },
        too_large);
    pmt.streams.resize(1);
    pmt.descriptors.clear();
    pmt.streams[0].descriptors = random.descriptors(1003);
    expect_largest(
        pmt, 1, 1024,
        [&](PMT& larger) { larger.streams[0].descriptors = random.descriptors(1004); },
        too_large);
}

}  // namespace
