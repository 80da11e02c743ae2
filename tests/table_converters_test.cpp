#include "framework/table_converters.h"

#include <gtest/gtest.h>

#include <limits>

#include "framework/section_limits.h"
#include "tables/sdt_sections.h"
#include "tables/section_packetizer.h"
#include "tests/support/random_tables.h"
#include "tools/section_collector.h"
#include "tools/table_collector.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint16_t kPmtPid = 0x1FFE;

const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));

std::string packets_of(const PAT& pat) {
    const PatPtr table(t2dPAT(pat));
    if (!table) return "";
    const SectionsPtr sections(
        dvbpsi_pat_sections_generate(handle.get(), table.get(), kPatProgramsPerSection));
    return packetize_sections(sections.get(), 0);
}

std::string packets_of(const CAT& cat) {
    const CatPtr table(t2dCAT(cat));
    if (!table) return "";
    const SectionsPtr sections(dvbpsi_cat_sections_generate(handle.get(), table.get()));
    return packetize_sections(sections.get(), 1);
}

std::string packets_of(const SDT& sdt) {
    const SdtPtr table(t2dSDT(sdt));
    if (!table) return "";
    return packetize_sections(generate_sdt_sections(handle.get(), *table).get(), 0x11);
}

std::string packets_of(const PMT& pmt) {
    const PmtPtr table(t2dPMT(pmt));
    if (!table) return "";
    const SectionsPtr sections(dvbpsi_pmt_sections_generate(handle.get(), table.get()));
    return packetize_sections(sections.get(), kPmtPid);
}

template <typename Table>
bool accepted(const Table& table) {
    return !packets_of(table).empty();
}

template <typename Receiver>
void push_all(const std::string& packets, Receiver& receiver) {
    for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
        receiver.push(reinterpret_cast<const std::uint8_t*>(&packets[at]));
    }
}

Multiplex received(const std::string& packets) {
    TableCollector collector;
    push_all(packets, collector);
    return collector.tables();
}

// The numbers of the sections and their sizes, where decoding a table would take long.
std::vector<std::size_t> section_sizes(const std::string& packets) {
    std::vector<std::size_t> sizes;
    SectionCollector collector([&](const dvbpsi_psi_section_t& section) {
        EXPECT_EQ(section.i_number, sizes.size());
        sizes.push_back(section.i_length + 3u);
    });
    push_all(packets, collector);
    return sizes;
}

// `field` accepts its limits and nothing beyond them.
template <typename Table>
void expect_range(Table& table, std::int32_t& field, std::int32_t lowest,
                  std::int32_t highest) {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int32_t good = field;
    for (const std::int32_t inside : {highest, lowest}) {
        field = inside;
        EXPECT_TRUE(accepted(table)) << inside;
    }
    for (const std::int32_t outside :
         {lowest - 1, highest + 1, limits::min(), limits::max()}) {
        field = outside;
        EXPECT_FALSE(accepted(table)) << outside;
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
    EXPECT_EQ(section_sizes(packets_of(pat)), std::vector<std::size_t>(256, 412));
    pat.programs.push_back(pat.programs[0]);
    EXPECT_FALSE(accepted(pat));

    Descriptor longest;
    longest.data = std::string(255, 'x');
    CAT cat;
    cat.descriptors.assign(256 * 3, longest);  // three fit one section
    EXPECT_EQ(section_sizes(packets_of(cat)),
              std::vector<std::size_t>(256, 12 + 3 * 257));
    cat.descriptors.push_back(longest);
    EXPECT_FALSE(accepted(cat));

    SDT sdt = random.sdt(256 * 201, 0);  // 201 fit one section
    EXPECT_EQ(section_sizes(packets_of(sdt)),
              std::vector<std::size_t>(256, 15 + 201 * 5));
    sdt.services.push_back(sdt.services[0]);
    EXPECT_FALSE(accepted(sdt));

    SDT full = random.sdt(256, 1004);  // each service fills its section
    EXPECT_EQ(section_sizes(packets_of(full)), std::vector<std::size_t>(256, 1024));
    full.services.resize(1);
    full.services[0].descriptors = random.descriptors(1005);
    EXPECT_FALSE(accepted(full));

    PMT pmt;
    pmt.streams.resize(201);
    pmt.descriptors = random.descriptors(1008 - 201 * 5);
    EXPECT_EQ(section_sizes(packets_of(pmt)), std::vector<std::size_t>(1, 1024));
    pmt.descriptors[0].data.push_back('x');
    EXPECT_FALSE(accepted(pmt));
    pmt.streams.clear();
    pmt.descriptors = random.descriptors(1009);
    EXPECT_FALSE(accepted(pmt));
}

// Everything that went in comes out, at generated sizes: at some of them, libdvbpsi by
// itself loses descriptors.
TEST(TableConverters, LoseNothingOnTheWayToAReceiver) {
    RandomTables random(5);
    for (int round = 0; round < 300; ++round) {
        const PAT pat = random.pat(1 + random.below(350));
        ASSERT_EQ(received(packets_of(pat)).pat, pat);
        const CAT cat = random.cat(random.below(5000));
        ASSERT_EQ(received(packets_of(cat)).cat, cat);
        const SDT sdt =
            random.sdt(random.below(120), random.below(round % 2 ? 1005 : 60));
        ASSERT_EQ(received(packets_of(sdt)).sdt, sdt) << sdt.services.size();

        const PMT pmt = random.pmt(static_cast<std::int32_t>(random.below(0xFFFF)) + 1,
                                   random.below(1009));
        PAT announcing;
        announcing.programs.emplace_back();
        announcing.programs[0].program_number = pmt.program_number;
        announcing.programs[0].pid = kPmtPid;
        const Multiplex multiplex = received(packets_of(announcing) + packets_of(pmt));
        ASSERT_EQ(multiplex.pmts.size(), 1u);
        ASSERT_EQ(multiplex.pmts[0].pmt, pmt);
    }
}

TEST(SdtSections, ComesOutAsTheLibraryMakesItWhenOneSectionHoldsIt) {
    RandomTables random(6);
    for (std::size_t services = 0; services < 30; ++services) {
        const SdtPtr table(t2dSDT(random.sdt(services, 25)));
        const SectionsPtr plain(dvbpsi_sdt_sections_generate(handle.get(), table.get()));
        const SectionsPtr ours = generate_sdt_sections(handle.get(), *table);
        EXPECT_EQ(packetize_sections(ours.get(), 0x11),
                  packetize_sections(plain.get(), 0x11));
    }
}

}  // namespace
