#include "tools/json/multiplex_json.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <set>
#include <tuple>

#include <gmock/gmock.h>

#include "tests/support/cases.h"
#include "tests/support/memory_file.h"
#include "tests/support/random_tables.h"
#include "tools/json/descriptor_fields.h"
#include "tools/json/descriptor_json.h"
#include "tools/json/dvb_text.h"
#include "tools/json/multiplex_file.h"
#include "tools/json/number_text.h"

using nlohmann::json;
using orvel::thrift::dvb_tables::Descriptor;

namespace {

Multiplex read_content(const std::string& content) {
    return read_multiplex_file(memory_file(content));
}

Descriptor descriptor_of(const std::string& tag_and_bytes) {
    Descriptor descriptor;
    descriptor.tag = static_cast<int>(*parse_number(tag_and_bytes.substr(0, 4)));
    descriptor.data = *from_hex(tag_and_bytes.substr(5));
    return descriptor;
}

TEST(MultiplexJson, GivesAnyTablesBackAsTheyWere) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        RandomTables random(seed);
        Multiplex multiplex;
        multiplex.pat = random.pat(random.below(300));
        multiplex.pat->current_next_indicator = random.below(2) == 0;
        if (random.below(2) == 0) multiplex.cat = random.cat(random.below(5000));
        if (random.below(2) == 0) multiplex.sdt = random.sdt(random.below(20), 900);
        for (std::int32_t service = 0; service < 5; ++service) {
            const auto pid = static_cast<std::uint16_t>(random.below(0x2000));
            multiplex.pmts.push_back({pid, random.pmt(service, random.below(1000))});
        }
        const std::string text = multiplex_to_json(multiplex).dump();
        EXPECT_TRUE(read_content(text) == multiplex) << text;
    }
}

TEST(DescriptorJson, UsesANameOnlyIfItGivesTheSameBytesAgain) {
    for (const auto& [tag_and_bytes, text] : cases_in("descriptors.txt")) {
        const Descriptor descriptor = descriptor_of(tag_and_bytes);
        const json document = descriptor_to_json(descriptor);
        const bool is_raw = text.substr(0, 3) == "raw";
        if (is_raw) {
            EXPECT_TRUE(document.contains("tag")) << document;
        } else {
            EXPECT_EQ(document, json::parse(text));
        }
        EXPECT_EQ(inner_overrun(descriptor),
                  is_raw && text.size() > 3 ? text.substr(5) : "");
        EXPECT_EQ(descriptor_from_json(JsonNode(document)), descriptor) << document;
    }
}

TEST(DescriptorJson, GivesAnyBytesBackAsTheyWere) {
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        const auto& forms = descriptor_forms();
        Descriptor descriptor;
        descriptor.tag = forms[random() % forms.size()].tag;
        descriptor.data.resize(random() % 2 == 0 ? random() % 12 : random() % 256);
        // Takes few different values, so that inner lengths and selectors are often
        // right.
        const std::uint32_t values = 8U << random() % 6;
        for (char& byte : descriptor.data) byte = static_cast<char>(random() % values);
        const json document = descriptor_to_json(descriptor);
        ASSERT_EQ(descriptor_from_json(JsonNode(document)), descriptor) << document;
        if (document.contains("tag")) continue;
        ASSERT_EQ(inner_overrun(descriptor), "") << document;
    }
}

TEST(DvbText, DecodesAnyTextThatItHasEncoded) {
    std::vector<const DvbCoding*> codings{nullptr};
    for (const DvbCoding& coding : dvb_codings()) codings.push_back(&coding);
    // Latin, Cyrillic, currencies with the won and the euro, Chinese, control codes.
    const std::pair<int, int> ranges[] = {{' ', '~'},       {0xA0, 0x17F},
                                          {0x401, 0x45F},   {0x20A9, 0x20AC},
                                          {0x4E2D, 0x4E2D}, {0xE080, 0xE09F}};
    for (const DvbCoding* const coding : codings) {
        int held = 0;
        for (const auto& [first, last] : ranges) {
            for (int code = first; code <= last; ++code) {
                const std::string text =
                    json::parse("\"\\u" + hex_number(code, 4).substr(2) + '"');
                const auto field = encode_dvb_text(text, coding);
                if (!field) continue;
                const auto decoded = decode_dvb_text(*field);
                EXPECT_TRUE(decoded && decoded->text == text) << code << ' ' << *field;
                EXPECT_TRUE(coding != nullptr || !decoded->coding) << text;
                ++held;
            }
        }
        const bool has_all = coding == nullptr || coding->charset[0] == 'U';
        EXPECT_TRUE(has_all ? held == 95 + 224 + 95 + 4 + 1 + 32 : held >= 95);
    }
}

TEST(MultiplexFile, ReportsTheFieldItsValueAndWhatWasExpected) {
    for (const auto& [content, expected] : cases_in("mistakes.txt")) {
        EXPECT_THAT([&text = content] { static_cast<void>(read_content(text)); },
                    testing::ThrowsMessage<FileMistake>(testing::HasSubstr(expected)));
    }
    EXPECT_THROW((void)read_multiplex_file(testing::TempDir()), FileMistake);
    const std::string thirty = json{{"descriptors", std::vector<int>(30, 1)}}.dump();
    EXPECT_THAT([&] { (void)read_content("{\"cat\": " + thirty + '}'); },
                testing::ThrowsMessage<FileMistake>(
                    testing::AllOf(testing::HasSubstr(":1: cat.descriptors[18]: found 1"),
                                   testing::EndsWith(": 11 more mistakes"))));
    EXPECT_STREQ(FileMistake("a\nb", {{3, "c"}}).what(), R"("a\x0ab":3: c)");
}

TEST(MultiplexFile, ReportsAllMistakesInTheOrderOfTheirLines) {
    const std::string many =
        "\xEF\xBB\xBF{\"sdt\": 1, // a comment\r\n"
        R"("pmts": [{"pid": 8192, /* two
lines */ "program_number": 7
, "version_number": 256, "steams": [],
"streams": [{"elementary_pid": 1, "stream_type": 2}, 1
], "pid": 8193}, {
"program_number": 7, "version_number": 0,
"pcr_pid": 1, "pid": 1}], "x": 3})";
    std::string found;
    try {
        (void)read_content(many);
    } catch (const FileMistake& mistake) {
        for (const auto& [line, text] : mistake.remarks())
            found += std::to_string(line) + ' ' + text.substr(0, text.find(',')) + '\n';
    }
    EXPECT_EQ(found, R"(1 sdt: found 1
2 pmts[0].pcr_pid: missing
4 pmts[0]: found the field "steams"
4 pmts[0].version_number: found 256
5 pmts[0].streams[1]: found 1
6 pmts[0]: found the field "pid" twice in one object
6 pmts[0].pid: found 8193
7 pmts[1].program_number: found 7
8 found the field "x"
)");
}

TEST(MultiplexFile, DoubtsNumbersThatMayBeMeantOtherwise) {
    for (const auto& [content, doubt] : cases_in("doubts.txt")) {
        std::vector<FileRemark> doubts;
        (void)read_multiplex_file(memory_file(content), FileKind::kRegularOrPipe,
                                  &doubts);
        EXPECT_EQ(doubts.size(), doubt == "none" ? 0 : 1) << content;
        EXPECT_EQ(doubts.empty() ? "none" : doubts.front().text, doubt);
    }
}

// Returns copies of the document, each with a change at one place. The fields in
// `only_removed` get no other values.
std::vector<json> variants_of(const json& document,
                              const std::set<std::string>& only_removed = {}) {
    json values = json::parse(R"([null, true, [], {}, -1, 1.5, "", "0x", "0xG", "-1",
        "abcd", "abc", "ab ", "010", "\u0001", "\u009F", "UTF-8", "ISO-8859-12"])");
    for (const std::size_t size : {253U, 510U, 512U})
        values.push_back(std::string(size, 'a'));
    for (const int bits : {0, 1, 2, 3, 4, 5, 6, 7, 8, 13, 14, 15, 16, 22, 32, 44}) {
        for (const std::int64_t number : {(1LL << bits) - 1, 1LL << bits}) {
            values.push_back(number);
            values.push_back(std::to_string(number));
            values.push_back(hex_number(number, 6));
        }
    }
    std::set<std::string> places;
    const json leaves = document.flatten();
    for (const auto& leaf : leaves.items()) {
        json::json_pointer place(leaf.key());
        for (; !place.empty(); place.pop_back()) places.insert(place.to_string());
    }
    std::vector<json> variants{document};
    for (const std::string& place : places) {
        variants.push_back(document.patch({{{"op", "remove"}, {"path", place}}}));
        if (only_removed.count(json::json_pointer(place).back()) != 0) continue;
        const json present = document.at(json::json_pointer(place));
        json others = values;
        if (present.is_object()) others.emplace_back(present)["x"] = 1;
        for (const std::size_t length : {31U, 32U, 51U, 52U, 63U, 64U, 85U, 86U}) {
            if (!present.is_array() || present.empty()) break;
            others.push_back(json(length, present[0]));
        }
        for (const json& other : others) {
            variants.emplace_back(document)[json::json_pointer(place)] = other;
        }
    }
    return variants;
}

constexpr const char* kEachFieldOfTables = R"({"$schema": "x",
    "pat": {"transport_stream_id": 1, "version_number": 1, "current_next_indicator": true,
        "programs": [{"program_number": 1, "pid": 1}]},
    "sdt": {"transport_stream_id": 1, "original_network_id": 1, "version_number": 1,
        "services": [{"service_id": 1, "eit_schedule_flag": true, "free_ca_mode": true,
            "running_status": 1, "eit_present_following_flag": true, "descriptors": []}]},
    "pmts": [{"pid": 1, "program_number": 1, "version_number": 1, "pcr_pid": 1,
        "descriptors": [{"tag": 1, "data": "00"}],
        "streams": [{"stream_type": 1, "elementary_pid": 1, "descriptors": []}]}]})";

TEST(Schema, AgreesWithTheReaderAboutEachVariantOfADocument) {
    std::vector<json> documents = variants_of(json::parse(kEachFieldOfTables));
    for (const char* const name : {"small.json", "large.json"}) {
        std::ifstream file(KESTAN_TEST_DATA "/../../examples/" + std::string(name));
        documents.push_back(json::parse(file));
    }
    documents.push_back({{"pmts", json::array()}});
    std::string names;  // and fields
    std::set<std::tuple<FieldKind, unsigned, FieldNeed>> tried;
    for (const auto& [bytes, text] : cases_in("descriptors.txt")) {
        if (text.substr(0, 3) == "raw") continue;
        names += text;
        json cat{{"cat", {{"version_number", 1}, {"descriptors", {json::parse(text)}}}}};
        std::set<std::string> like_earlier_ones;
        for (const DescriptorField& field : form_of(descriptor_of(bytes))->fields) {
            const bool has_own_size = field.kind == FieldKind::kBytes && field.bits == 0;
            const bool is_new = tried.emplace(field.kind, field.bits, field.need).second;
            if (!is_new && !has_own_size) like_earlier_ones.insert(field.name);
        }
        for (json& variant : variants_of(cat, like_earlier_ones)) {
            documents.push_back(std::move(variant));
        }
        for (const DvbCoding& coding : dvb_codings()) {
            json& descriptor = cat["cat"]["descriptors"][0];
            if (!descriptor.contains("service")) break;
            descriptor["service"]["service_name"] = "a";
            descriptor["service"]["service_name_coding"] = coding.name;
            documents.push_back(cat);
        }
    }
    for (const DescriptorForm& form : descriptor_forms()) {
        EXPECT_NE(names.find(form.name), std::string::npos);
        for (const DescriptorField& field : form.fields) {
            const bool has_sample = names.find(field.name) != std::string::npos;
            EXPECT_TRUE(has_sample || !is_in_json(field)) << field.name;
        }
    }

    FILE* const schema = popen("/usr/bin/python3 '" KESTAN_TEST_DATA
                               "/../support/schema_verdicts.py' '" KESTAN_TEST_DATA
                               "/../../tools/json/multiplex.schema.json'",
                               "w");
    int valid = 0;
    for (const json& document : documents) {
        JsonFindings findings;
        static_cast<void>(multiplex_from_json(JsonNode(document, &findings)));
        const bool is_valid = findings.mistakes.is_empty() && findings.doubts.is_empty();
        valid += is_valid ? 1 : 0;
        fprintf(schema, "%s %s\n", is_valid ? "valid" : "invalid",
                document.dump().c_str());
    }
    EXPECT_EQ(pclose(schema), 0);
    EXPECT_GT(valid, 500);
    EXPECT_GT(documents.size(), 6000U);
}

}  // namespace
