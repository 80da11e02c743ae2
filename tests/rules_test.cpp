#include "tools/rules/rules.h"

#include <functional>
#include <set>

#include <gtest/gtest.h>

#include "dvb/ts_packet.h"
#include "framework/table_converters.h"
#include "tables/table_packets.h"
#include "tests/support/random_tables.h"
#include "thrift/table_fields.h"
#include "tools/json/multiplex_file.h"
#include "tools/rules/bit_rate.h"

using namespace orvel::thrift::dvb_tables;

namespace {

PATProgram program(std::int32_t number, std::int32_t pid) {
    PATProgram made;
    made.program_number = number;
    made.pid = pid;
    return made;
}

Descriptor descriptor(std::int32_t tag, const std::string& data) {
    Descriptor made;
    made.tag = tag;
    made.data = data;
    return made;
}

// Returns three services: 101 in the clear, 102 scrambled, 103 with one stream.
Multiplex right_multiplex() {
    Multiplex made = read_multiplex_file(KESTAN_EXAMPLES "/small.json");
    made.pat->programs.push_back(program(0, 0x10));
    return made;
}

void move_pmt(Multiplex& multiplex, std::size_t index, std::uint16_t pid) {
    multiplex.pmts[index].pid = pid;
    multiplex.pat->programs[index].pid = pid;
}

// Adds services with 295 bytes each in the SDT. Three of them make a section of 5
// packets; the first section, with the present services, has 6.
void add_services(Multiplex& multiplex, std::int32_t services) {
    for (std::int32_t i = 1; i <= services; ++i) {
        SDTService service = multiplex.sdt->services[2];
        service.service_id += i;
        service.descriptors.push_back(descriptor(0x80, std::string(255, 'x')));
        multiplex.sdt->services.push_back(service);
        PmtOnPid pmt = multiplex.pmts[2];
        pmt.pmt.program_number += i;
        multiplex.pmts.push_back(pmt);
        multiplex.pat->programs.push_back(program(service.service_id, pmt.pid));
    }
}

struct Fault {
    std::string findings;  // the fault's first: "severity rule place", a line for each
    std::function<void(Multiplex&)> put_in;
};

const Fault kFaults[] = {
    {"error service_with_two_pmts pmts[3].program_number",
     [](auto& m) { m.pmts.push_back(m.pmts[0]); }},
    {"error program_twice_in_pat pat.programs[4].program_number",
     [](auto& m) { m.pat->programs.push_back(m.pat->programs[0]); }},
    {"error program_twice_in_pat pat.programs[4].program_number",
     [](auto& m) { m.pat->programs.push_back(m.pat->programs[3]); }},
    {"error service_twice_in_sdt sdt.services[3].service_id",
     [](auto& m) { m.sdt->services.push_back(m.sdt->services[0]); }},
    {"error pmt_of_program_0 pmts[3].program_number\n"
     "warning network_pid_differs pat.programs[3].pid",
     [](auto& m) {
         m.pmts.emplace_back().pid = 0x10;
         m.pmts[3].pmt.pcr_pid = 0x1FFF;
         move_pmt(m, 3, 0x200);
     }},
    {"error pmt_on_reserved_pid pat.programs[0].pid\nerror pmt_on_reserved_pid "
     "pmts[0].pid",
     [](auto& m) { move_pmt(m, 0, 1); }},
    {"error pmt_on_reserved_pid pat.programs[0].pid\nerror pmt_on_reserved_pid "
     "pmts[0].pid",
     [](auto& m) { move_pmt(m, 0, 0x1F); }},
    {"error pmt_on_reserved_pid pat.programs[0].pid\nerror pmt_on_reserved_pid "
     "pmts[0].pid",
     [](auto& m) {
         move_pmt(m, 0, 0x1FFF);
         m.pmts[1].pmt.pcr_pid = 0x1FFF;
     }},
    {"error pmt_on_stream_pid pmts[0].pid", [](auto& m) { move_pmt(m, 0, 0x112); }},
    {"error pmt_on_stream_pid pmts[0].pid", [](auto& m) { move_pmt(m, 0, 0x31); }},
    {"error pmt_on_stream_pid pmts[0].pid",
     [](auto& m) {
         m.pmts[1].pmt.descriptors[0].data[2] = '\xF0';  // CA_PID 0x1031
         move_pmt(m, 0, 0x1031);
     }},
    {"error pmt_on_stream_pid pmts[0].pid\n"
     "warning pcr_pid_without_stream pmts[2].pcr_pid",
     [](auto& m) {
         m.pmts[2].pmt.pcr_pid = 0x122;
         move_pmt(m, 0, 0x122);
     }},
    {"error pmt_not_where_announced pmts[1].pid", [](auto& m) { m.pmts[1].pid = 0x200; }},
    {"error stream_on_reserved_pid pmts[0].streams[1].elementary_pid",
     [](auto& m) { m.pmts[0].pmt.streams[1].elementary_pid = 0x1F; }},
    {"", [](auto& m) { m.pmts[0].pmt.streams[1].elementary_pid = 0x1FFF; }},  // off air
    {"", [](auto& m) { m.pmts[0].pmt.streams[1].elementary_pid = 0x20; }},
    {"error ca_on_reserved_pid cat.descriptors[0]",
     [](auto& m) { m.cat->descriptors[0].data = "\xFF\xF1\xE0\x12"; }},
    {"error ca_on_reserved_pid pmts[1].descriptors[0]",
     [](auto& m) { m.pmts[1].pmt.descriptors[0].data = "\xFF\xF1\xFF\xFF"; }},
    {"error emm_on_pmt_pid cat.descriptors[0]",
     [](auto& m) { m.cat->descriptors[0].data = "\xFF\xF1\xE1\x10"; }},
    {"error emm_on_pmt_pid cat.descriptors[0]\n"
     "warning service_without_pmt pat.programs[4]",
     [](auto& m) {
         m.cat->descriptors[0].data = "\xFF\xF1\xE2\x22";
         m.pat->programs.push_back(program(104, 0x222));
     }},
    {"error ca_on_stream_pid cat.descriptors[0]",
     [](auto& m) { m.cat->descriptors[0].data = "\xFF\xF1\xE1\x03"; }},
    {"error ca_on_stream_pid pmts[1].descriptors[0]",
     [](auto& m) { m.pmts[1].pmt.descriptors[0].data = "\xFF\xF1\xE1\x21"; }},
    // Services share an elementary PID and an ECM PID.
    {"",
     [](auto& m) {
         m.pmts[0].pmt.streams.push_back(m.pmts[1].pmt.streams[2]);
         m.pmts[0].pmt.descriptors = m.pmts[1].pmt.descriptors;
         m.sdt->services[0].free_ca_mode = true;
     }},
    {"error elementary_pid_twice pmts[0].streams[3].elementary_pid",
     [](auto& m) { m.pmts[0].pmt.streams.push_back(m.pmts[0].pmt.streams[1]); }},
    {"error elementary_pid_twice pmts[0].streams[3].elementary_pid",
     [](auto& m) {
         m.pmts[0].pmt.streams.push_back(m.pmts[0].pmt.streams[1]);
         m.pmts[0].pmt.streams[3].stream_type = 3;
     }},
    {"error table_refused pmts[0]",
     [](auto& m) {
         m.pmts[0].pmt.descriptors.assign(4, descriptor(0x80, std::string(255, 'x')));
     }},
    {"error table_refused sdt", [](auto& m) { m.sdt->services[0].running_status = 8; }},
    {"error descriptor_overrun pmts[0].streams[1].descriptors[0]",
     [](auto& m) { m.pmts[0].pmt.streams[1].descriptors[0].data += "d"; }},
    {"error descriptor_overrun sdt.services[0].descriptors[0]",
     [](auto& m) { m.sdt->services[0].descriptors[0].data.pop_back(); }},
    {"error descriptor_overrun cat.descriptors[1]",
     [](auto& m) { m.cat->descriptors.push_back(descriptor(9, "abc")); }},
    {"warning pat_missing pat", [](auto& m) { m.pat.reset(); }},
    {"warning pat_missing pat",
     [](auto& m) {
         m.pat.reset();
         m.pmts.clear();
     }},
    {"warning service_without_pmt pat.programs[2]", [](auto& m) { m.pmts.pop_back(); }},
    {"warning pmt_not_in_pat pmts[0].program_number",
     [](auto& m) {
         m.pat->programs.erase(m.pat->programs.begin());
         m.sdt->services.erase(m.sdt->services.begin());
     }},
    {"warning sdt_service_not_in_pat sdt.services[0].service_id",
     [](auto& m) {
         m.pat->programs.erase(m.pat->programs.begin());
         m.pmts.erase(m.pmts.begin());
     }},
    {"warning transport_stream_id_differs sdt.transport_stream_id",
     [](auto& m) { m.sdt->transport_stream_id = 2; }},
    {"warning pcr_pid_without_stream pmts[2].pcr_pid",
     [](auto& m) { m.pmts[2].pmt.pcr_pid = 0x122; }},
    {"warning ca_system_not_in_cat pmts[1].descriptors[0]",
     [](auto& m) { m.cat.reset(); }},
    {"warning ca_system_not_in_cat pmts[1].descriptors[0]",
     [](auto& m) { m.cat->descriptors[0].data[0] = 0x01; }},
    {"warning free_ca_mode_differs sdt.services[1].free_ca_mode",
     [](auto& m) { m.sdt->services[1].free_ca_mode = false; }},
    {"warning free_ca_mode_differs sdt.services[1].free_ca_mode",
     [](auto& m) {
         m.sdt->services[1].free_ca_mode = false;
         m.pmts[1].pmt.streams[0].descriptors.swap(m.pmts[1].pmt.descriptors);
     }},
    {"warning free_ca_mode_differs sdt.services[0].free_ca_mode",
     [](auto& m) { m.sdt->services[0].free_ca_mode = true; }},
    {"warning service_without_name sdt.services[2]",
     [](auto& m) { m.sdt->services[2].descriptors.clear(); }},
    {"warning service_without_name sdt.services[2]",
     [](auto& m) {
         m.sdt->services[2].descriptors[0].data = {"\1\1A\0", 4};
     }},
    {"warning stream_type_differs pmts[2].streams[1].stream_type",
     [](auto& m) {
         m.pmts[2].pmt.streams.push_back(m.pmts[0].pmt.streams[1]);
         m.pmts[2].pmt.streams[1].stream_type = 3;
     }},
    {"warning not_in_force pmts[0].current_next_indicator",
     [](auto& m) { m.pmts[0].pmt.current_next_indicator = false; }},
    {"warning version_above_31 cat.version_number",
     [](auto& m) { m.cat->version_number = 32; }},
    {"warning network_pid_differs pat.programs[3].pid",
     [](auto& m) { m.pat->programs[3].pid = 0x11; }},
    {"warning private_stream_unknown pmts[1].streams[2]",
     [](auto& m) { m.pmts[1].pmt.streams[2].descriptors[0].tag = 0x0A; }},
    {"", [](auto& m) { m.pmts[1].pmt.streams[2].descriptors[0].tag = 0x80; }},
    {"warning sdt_sections_too_close sdt", [](auto& m) { add_services(m, 11); }},
    {"", [](auto& m) { add_services(m, 10); }},
    {"information network_pid_missing pat.programs",
     [](auto& m) { m.pat->programs.pop_back(); }},
};

TEST(Rules, ReportNothingAboutARightMultiplexAndEachOfItsTables) {
    const Multiplex right = right_multiplex();
    EXPECT_TRUE(check_file_tables(right).empty());
    Multiplex pat_only;
    pat_only.pat = right.pat;
    EXPECT_FALSE(has_errors(check_file_tables(pat_only)));
    EXPECT_TRUE(check_file_tables({}).empty());
}

// Foreign streams may break these.
const std::set<std::string_view> kRulesForFiles{
    "network_pid_differs", "private_stream_unknown", "sdt_sections_too_close"};

std::string lines_of(const std::vector<Finding>& findings) {
    std::string lines;
    for (const Finding& finding : findings) {
        lines += lines.empty() ? "" : "\n";
        for (const std::string_view part : {name_of(finding.severity), finding.rule}) {
            lines += std::string(part) + ' ';
        }
        lines += place_of(finding);
    }
    return lines;
}

TEST(Rules, ReportEachFaultWithItsSeverityAndPlace) {
    std::set<std::string_view> untried;
    for (const Rule& rule : all_rules()) untried.insert(rule.name);
    EXPECT_EQ(untried.size(), all_rules().size());
    for (const Fault& fault : kFaults) {
        Multiplex multiplex = right_multiplex();
        fault.put_in(multiplex);
        const std::vector<Finding> findings = check_file_tables(multiplex);
        EXPECT_EQ(lines_of(findings), fault.findings);
        if (!findings.empty()) untried.erase(findings[0].rule);
        for (const Finding& finding : check_tables(multiplex)) {
            EXPECT_EQ(kRulesForFiles.count(finding.rule), 0U);
        }
    }
    EXPECT_TRUE(untried.empty()) << *untried.begin();
}

TEST(BitRate, CountsThePacketsThatGoOut) {
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        RandomTables random(seed);
        const PAT pat = random.pat(random.below(4) * 100 + random.below(2));
        const CAT cat = random.cat(random.below(5000));
        const SDT sdt = random.sdt(random.below(20), 900);
        const PMT pmt = random.pmt(1, 1008 - random.below(2) * random.below(1000));
        const auto expect_count = [](const SectionFill& fill, const auto& converted) {
            EXPECT_EQ(fill.packets() * kTsPacketSize,
                      table_packets(*converted, 0x100).size());
        };
        expect_count(fill_sections(pat), PatPtr(t2dPAT(pat)));
        expect_count(fill_sections(cat), CatPtr(t2dCAT(cat)));
        expect_count(fill_sections(sdt), SdtPtr(t2dSDT(sdt)));
        expect_count(fill_sections(pmt), PmtPtr(t2dPMT(pmt)));
    }
    EXPECT_EQ(needed_bit_rate(right_multiplex()).text(),
              "25.0 packets a second, 37.6 kbit/s");
}

}  // namespace
