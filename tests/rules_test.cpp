#include "tools/rules/rules.h"

#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "dvb/ts_packet.h"
#include "framework/table_converters.h"
#include "tables/table_packets.h"
#include "tests/support/cases.h"
#include "tests/support/memory_file.h"
#include "tests/support/random_tables.h"
#include "thrift/table_fields.h"
#include "tools/json/multiplex_file.h"
#include "tools/rules/bit_rate.h"

using nlohmann::json;
using namespace orvel::thrift::dvb_tables;

namespace {

// Three services: 101 in the clear, 102 scrambled, 103 with one stream.
json right_document() {
    std::ifstream file(KESTAN_TEST_DATA "/../../examples/small.json");
    json document = json::parse(file);
    document["pat"]["programs"].push_back({{"program_number", 0}, {"pid", "0x0010"}});
    return document;
}

Multiplex multiplex_of(const json& document) {
    return read_multiplex_file(memory_file(document.dump()));
}

// Changes the document by JSON Pointer. A null removes what is there.
json changed(json document, const json& changes) {
    for (const auto& [place, value] : changes.items()) {
        if (value.is_null()) {
            document = document.patch({{{"op", "remove"}, {"path", place}}});
        } else {
            document[json::json_pointer(place)] = value;
        }
    }
    return document;
}

// Returns the document with more services. Each has 295 bytes in the SDT. Three of them
// make a section of 5 packets; the first section, with the present services, has 6.
json with_more_services(json document, int services) {
    json service = document["sdt"]["services"][2];
    service["descriptors"].push_back({{"tag", 128}, {"data", std::string(510, 'a')}});
    json program = document["pat"]["programs"][2];
    json pmt = document["pmts"][2];
    for (int id = 104; id < 104 + services; ++id) {
        service["service_id"] = program["program_number"] = pmt["program_number"] = id;
        document["sdt"]["services"].push_back(service);
        document["pat"]["programs"].push_back(program);
        document["pmts"].push_back(pmt);
    }
    return document;
}

// Foreign streams may break these.
const std::set<std::string_view> kRulesForFiles{
    "network_pid_differs", "private_stream_unknown", "sdt_sections_too_close"};

// Returns "severity rule place; ..." or "none".
std::string text_of(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += text.empty() ? "" : "; ";
        text += std::string(name_of(finding.severity)) + ' ' + std::string(finding.rule) +
                ' ' + place_of(finding);
    }
    return text.empty() ? "none" : text;
}

TEST(Rules, ReportNothingAboutARightMultiplexAndEachOfItsTables) {
    const Multiplex right = multiplex_of(right_document());
    EXPECT_TRUE(check_tables(right, RuleScope::kFileTables).empty());
    Multiplex pat_only;
    pat_only.pat = right.pat;
    EXPECT_EQ(text_of(check_tables(pat_only, RuleScope::kFileTables)).find("error"),
              std::string::npos);
    EXPECT_TRUE(check_tables({}, RuleScope::kFileTables).empty());
}

TEST(Rules, ReportEachFaultWithItsSeverityAndPlace) {
    const json right = right_document();
    std::vector<std::pair<Multiplex, std::string>> faults{
        {multiplex_of(with_more_services(right, 10)), "none"},
        {multiplex_of(with_more_services(right, 11)),
         "warning sdt_sections_too_close sdt"},
        {multiplex_of(right), "error service_with_two_pmts pmts[3].program_number"},
    };
    faults.back().first.pmts.push_back(faults.back().first.pmts[0]);
    for (const auto& [changes, findings] : cases_in("faults.txt")) {
        faults.emplace_back(multiplex_of(changed(right, json::parse(changes))), findings);
    }
    std::set<std::string_view> untried;
    for (const Rule& rule : all_rules()) untried.insert(rule.name);
    EXPECT_EQ(untried.size(), all_rules().size());
    for (const auto& [multiplex, expected] : faults) {
        const std::vector<Finding> findings =
            check_tables(multiplex, RuleScope::kFileTables);
        EXPECT_EQ(text_of(findings), expected);
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
    EXPECT_EQ(needed_bit_rate(multiplex_of(right_document())).text(),
              "25.0 packets a second, 37.6 kbit/s");
}

}  // namespace
