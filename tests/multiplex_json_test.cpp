#include "tools/multiplex_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <sstream>

#include "tests/support/random_tables.h"
#include "tools/descriptor_json.h"
#include "tools/multiplex_file.h"
#include "tools/number_text.h"

using namespace orvel::thrift::dvb_tables;
using nlohmann::json;
using testing::HasSubstr;

namespace {

void expect_equal(const Multiplex& left, const Multiplex& right) {
    EXPECT_TRUE(left.pat == right.pat);
    EXPECT_TRUE(left.cat == right.cat);
    EXPECT_TRUE(left.sdt == right.sdt);
    ASSERT_EQ(left.pmts.size(), right.pmts.size());
    for (std::size_t i = 0; i < left.pmts.size(); ++i) {
        EXPECT_EQ(left.pmts[i].pid, right.pmts[i].pid);
        EXPECT_TRUE(left.pmts[i].pmt == right.pmts[i].pmt);
    }
}

Multiplex written_and_read(const Multiplex& multiplex) {
    const json document = json::parse(multiplex_to_json(multiplex).dump());
    return multiplex_from_json(JsonNode(document));
}

// Reads a file with this content, `times` times over.
Multiplex read_content(const std::string& content, std::size_t times = 1) {
    const std::string path =
        testing::TempDir() + "kestan_" + std::to_string(getpid()) + ".json";
    std::ofstream(path, std::ios::binary) << content;
    return read_multiplex_files(std::vector(times, path));
}

TEST(MultiplexJson, GivesAnyTablesBackAsTheyWere) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        RandomTables random(seed);
        Multiplex multiplex;
        multiplex.pat = random.pat(random.below(300));
        multiplex.pat->current_next_indicator = random.below(2) == 0;
        if (random.below(2) == 0) multiplex.cat = random.cat(random.below(5000));
        multiplex.sdt = random.sdt(random.below(20), random.below(900));
        for (std::int32_t service = 0; service < 5; ++service) {
            const auto pid = static_cast<std::uint16_t>(random.below(0x2000));
            multiplex.pmts.push_back({pid, random.pmt(service, random.below(1000))});
        }
        expect_equal(written_and_read(multiplex), multiplex);
    }
}

TEST(DescriptorJson, NamesWhatItCanNameExactlyAndOnlyThat) {
    const std::tuple<int, const char*, const char*> cases[] = {
        {0x48, "01 03 426179 05 486172626f",
         R"({"service":{"service_type":1,"provider_name":"Bay","service_name":"Harbo"}})"},
        {0x48, "02 00 06 15 4dc3b67765",
         R"({"service":{"service_type":2,"provider_name":"","service_name":"Möwe"}})"},
        {0x0A, "656e6700 64657503",
         R"({"iso_639_language":[{"language":"eng","audio_type":0},)"
         R"({"language":"deu","audio_type":3}]})"},
        {0x09, "fff1 e123", R"({"ca":{"ca_system_id":"0xFFF1","ca_pid":"0x0123"}})"},
        {0x09, "0001 ffff 0a0b",
         R"({"ca":{"ca_system_id":"0x0001","ca_pid":"0x1FFF","private_data":"0a0b"}})"},
        {0x48, "", nullptr},                      // shorter than its fixed fields
        {0x48, "01 09 426179 02 4861", nullptr},  // provider's length too large
        {0x48, "01 03 426179 09 4861", nullptr},  // service's length too large
        {0x48, "01 00 02 0561", nullptr},         // another character coding
        {0x48, "01 01 42 01 61 00", nullptr},     // a byte behind the names
        {0x48, "01 00 02 1561", nullptr},         // a selector that ASCII does not need
        {0x48, "01 00 02 15c3", nullptr},         // no UTF-8 behind its selector
        {0x48, "01 00 02 61e9", nullptr},         // default table, not ASCII
        {0x0A, "656e67 00 64", nullptr},          // half an entry
        {0x09, "0001 0123", nullptr},             // reserved bits not set
        {0x52, "01", nullptr},
    };
    for (const auto& [tag, bytes, text] : cases) {
        Descriptor descriptor;
        descriptor.tag = tag;
        descriptor.data = *from_hex(bytes);
        const json document = descriptor_to_json(descriptor);
        if (text == nullptr) {
            EXPECT_TRUE(document.contains("tag")) << document;
        } else {
            EXPECT_EQ(document, json::parse(text));
        }
        EXPECT_EQ(descriptor_from_json(JsonNode(document)), descriptor);
    }
}

TEST(MultiplexFile, NamesTheFieldWhatStandsThereAndWhatWasExpected) {
    const std::string begin = R"({"pmts": [{"pid": 256, "program_number": 1, )"
                              R"("version_number": 0, "pcr_pid": 257, )";
    const auto pmt = [&](const std::string& fields) { return begin + fields + "}]}"; };
    const auto with_descriptor = [&](const std::string& text) {
        return pmt(R"("descriptors": [{)" + text + "}]");
    };
    const auto service = [&](const std::string& provider) {
        return with_descriptor(R"("service": {"service_type": 1, "service_name": "", )"
                               R"("provider_name": ")" +
                               provider + "\"}");
    };
    const auto cat = [](const std::string& version) {
        return R"({"cat": {"version_number": )" + version + "}}";
    };
    const std::pair<std::string, const char*> cases[] = {
        {"{\n  \"pat\": {]}", "not JSON: line 2, column 11"},
        {"[]", "found an array, expected an object with the fields pat, cat, sdt, pmts"},
        {"{}", "found an object, expected at least one table"},
        {R"({"pta": {}})", R"(found the field "pta", expected only pat, cat, sdt, pmts)"},
        {R"({"cat": {}, "cat": {}})", R"(found the field "cat" twice in one object)"},
        {R"({"cat": {}})", "cat.version_number: missing"},
        {cat("1.5"), "cat.version_number: found 1.5, expected a number from 0 to 255"},
        {cat("18446744073709551615"), "cat.version_number: found"},
        {cat("\"0x1g\""), "cat.version_number: found \"0x1g\""},
        {pmt(R"("streams": [{"stream_type": 2, "elementary_pid": "0x2000"}])"),
         "pmts[0].streams[0].elementary_pid: found \"0x2000\", expected a number from 0"},
        {pmt(R"("streams": {})"), "pmts[0].streams: found an object, expected an array"},
        {pmt("\"streams\": []}, " + begin.substr(10) + "\"streams\": []"),
         "pmts[1].program_number: found 1, expected one PMT per service: pmts[0]"},
        {with_descriptor(R"("tag": 1, "data": "0")"),
         "pmts[0].descriptors[0].data: found \"0\", expected bytes as pairs"},
        {with_descriptor(R"("tag": 1, "data": ")" + std::string(512, 'a') + '"'),
         "pmts[0].descriptors[0].data: found \"aaaaaaaaaa"},
        {with_descriptor(R"("tag": 1, "ca": {"ca_system_id": 1, "ca_pid": 1})"),
         "pmts[0].descriptors[0]: found the field \"tag\", expected only ca"},
        {service(std::string(253, 'x')), "expected names of at most 252"},
        {service("a\\nb"), R"(found "a\nb", expected a name without control)"},
        {with_descriptor(R"("iso_639_language": [{"language": "en"}])"),
         "pmts[0].descriptors[0].iso_639_language[0].language: found \"en\""},
        {with_descriptor(R"("ca": {"ca_system_id": 1, "ca_pid": 1, "private_data": ")" +
                         std::string(504, 'a') + "\"}"),
         "ca.private_data: found \"aaaaaaaaaa"},
        {std::string(100000, '['), "not JSON"},
        {R"({"pat":)" + std::string(100000, '[') + std::string(100000, ']') + "}",
         "pat: found an array"},
    };
    for (const auto& [content, expected] : cases) {
        const auto read = [&text = content] { static_cast<void>(read_content(text)); };
        EXPECT_THAT(read, testing::ThrowsMessage<FileMistake>(HasSubstr(expected)));
    }
    EXPECT_TRUE(read_content("// comments may stand\n" + cat("/* anywhere */ 1")).cat);
    EXPECT_THROW((void)read_content(cat("1"), 2), FileMistake);
    EXPECT_THROW((void)read_content(pmt("\"streams\": []"), 2), FileMistake);
    EXPECT_THROW((void)read_multiplex_files({testing::TempDir()}), FileMistake);
}

// Whatever a file holds, it is tables or a mistake that is named.
TEST(MultiplexFile, SurvivesHostileFiles) {
    std::ostringstream example;
    example << std::ifstream(KESTAN_EXAMPLES "/small.json").rdbuf();
    const std::string snippets[] = {
        "[",      "}", "\"", ",", "-1", "1e400", "null", "\xC3", std::string(1, '\0'),
        "\\uD800"};
    std::mt19937 random(1);
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = example.str();
        for (auto changes = random() % 3 + 1; changes != 0; --changes) {
            const auto at = random() % text.size();
            const auto length = std::min<std::size_t>(random() % 20, text.size() - at);
            text.replace(at, length,
                         random() % 2 == 0 ? snippets[random() % std::size(snippets)]
                                           : text.substr(random() % text.size(), length));
        }
        try {
            const Multiplex read = read_content(text);
            ++accepted;
            expect_equal(written_and_read(read), read);
        } catch (const FileMistake&) {
        }
    }
    EXPECT_GT(accepted, 10);
}

}  // namespace
