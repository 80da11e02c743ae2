#include "tools/json/multiplex_json.h"

#include <fstream>
#include <random>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

// The cases of a file, a line each: what is given and what is expected, with " => "
// between them. A letter or bracket may be followed by the times that it stands, as in
// a{600}.
std::vector<std::pair<std::string, std::string>> cases_in(const char* path) {
    std::vector<std::pair<std::string, std::string>> cases;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        std::smatch times;
        while (std::regex_search(line, times, std::regex(R"(([a-z\[\]])\{(\d+)\})"))) {
            line = times.prefix().str() +
                   std::string(std::stoul(times[2]), times.str()[0]) +
                   times.suffix().str();
        }
        const std::size_t arrow = line.find(" => ");
        cases.emplace_back(line.substr(0, arrow), line.substr(arrow + 4));
    }
    EXPECT_FALSE(cases.empty());
    return cases;
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

TEST(DescriptorJson, NamesWhatItCanNameExactlyAndOnlyThat) {
    for (const auto& [tag_and_bytes, text] :
         cases_in(KESTAN_TEST_DATA "/descriptors.txt")) {
        Descriptor descriptor;
        descriptor.tag = static_cast<int>(*parse_number(tag_and_bytes.substr(0, 4)));
        descriptor.data = *from_hex(tag_and_bytes.substr(5));
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
        // Few values, so that inner lengths and selectors often are right.
        const std::uint32_t values = 8U << random() % 6;
        for (char& byte : descriptor.data) byte = static_cast<char>(random() % values);
        const json document = descriptor_to_json(descriptor);
        ASSERT_EQ(descriptor_from_json(JsonNode(document)), descriptor) << document;
        if (document.contains("tag")) continue;
        ASSERT_EQ(inner_overrun(descriptor), "") << document;
    }
}

TEST(DvbText, GivesBackWhatACodingHoldsAndAnyTextWhereItMayChoose) {
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

TEST(MultiplexFile, NamesTheFieldWhatStandsThereAndWhatWasExpected) {
    for (const auto& [content, expected] : cases_in(KESTAN_TEST_DATA "/mistakes.txt")) {
        EXPECT_THAT([&text = content] { static_cast<void>(read_content(text)); },
                    testing::ThrowsMessage<FileMistake>(testing::HasSubstr(expected)));
    }
    EXPECT_NO_THROW((void)read_content(
        "// comments may stand\n/* anywhere */"
        R"({"pmts": [{"pid": 1, "program_number": 1, "version_number": 0, "pcr_pid": 1}]})"));
    EXPECT_THROW((void)read_multiplex_file(testing::TempDir()), FileMistake);
}

}  // namespace
