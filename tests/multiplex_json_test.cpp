#include "tools/multiplex_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
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

// A file of this process's that lasts as long as the object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content)
        : path_(testing::TempDir() + "kestan_" + std::to_string(getpid()) + ".json") {
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

void expect_equal(const Multiplex& left, const Multiplex& right) {
    EXPECT_TRUE(left.pat == right.pat);
    EXPECT_TRUE(left.cat == right.cat);
    EXPECT_TRUE(left.sdt == right.sdt);
    const auto equal = [](const PmtOnPid& one, const PmtOnPid& other) {
        return one.pid == other.pid && one.pmt == other.pmt;
    };
    EXPECT_TRUE(std::equal(left.pmts.begin(), left.pmts.end(), right.pmts.begin(),
                           right.pmts.end(), equal));
}

Multiplex read_text(const std::string& text) {
    const json document = json::parse(text);
    return multiplex_from_json(JsonNode(document));
}

// The message of the mistake in a file with this content, without the file's name; empty
// when there is none.
std::string mistake_in(const std::string& content) {
    const TemporaryFile file(content);
    try {
        (void)read_multiplex_files({file.path()});
        return "";
    } catch (const FileMistake& mistake) {
        EXPECT_EQ(std::string(mistake.what()).find(file.path() + ": "), 0U);
        return std::string(mistake.what()).substr(file.path().size() + 2);
    }
}

Descriptor descriptor(std::int32_t tag, const std::string& hex) {
    Descriptor made;
    made.tag = tag;
    made.data = *from_hex(hex);
    return made;
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
        expect_equal(read_text(multiplex_to_json(multiplex).dump()), multiplex);
    }
}

TEST(DescriptorJson, NamesWhatItCanNameExactlyAndOnlyThat) {
    const std::pair<Descriptor, const char*> named[] = {
        {descriptor(0x48, "01 03 426179 05 486172626f"),
         R"({"service":{"service_type":1,"provider_name":"Bay","service_name":"Harbo"}})"},
        {descriptor(0x48, "02 00 06 15 4dc3b67765"),
         R"({"service":{"service_type":2,"provider_name":"","service_name":"Möwe"}})"},
        {descriptor(0x0A, "656e6700 64657503"),
         R"({"iso_639_language":[{"language":"eng","audio_type":0},)"
         R"({"language":"deu","audio_type":3}]})"},
        {descriptor(0x09, "fff1 e123"),
         R"({"ca":{"ca_system_id":"0xFFF1","ca_pid":"0x0123"}})"},
        {descriptor(0x09, "0001 ffff 0a0b"),
         R"({"ca":{"ca_system_id":"0x0001","ca_pid":"0x1FFF","private_data":"0a0b"}})"},
    };
    for (const auto& [bytes, text] : named) {
        EXPECT_EQ(descriptor_to_json(bytes).dump(), text);
        const json document = json::parse(text);
        EXPECT_EQ(descriptor_from_json(JsonNode(document)), bytes);
    }
    const Descriptor raw[] = {
        descriptor(0x48, ""),                      // shorter than its fixed fields
        descriptor(0x48, "01 09 426179 02 4861"),  // provider's length too large
        descriptor(0x48, "01 03 426179 09 4861"),  // service's length too large
        descriptor(0x48, "01 01 42 01 61 00"),     // a byte behind the names
        descriptor(0x48, "01 00 02 0561"),         // another character coding
        descriptor(0x48, "01 00 02 1561"),         // a selector that ASCII does not need
        descriptor(0x48, "01 00 02 15c3"),         // no UTF-8 behind its selector
        descriptor(0x48, "01 00 02 61e9"),         // default table, not ASCII
        descriptor(0x0A, "656e67 00 64"),          // half an entry
        descriptor(0x09, "0001 0123"),             // reserved bits not set
        descriptor(0x52, "01"),
    };
    for (const Descriptor& bytes : raw) {
        const json document = descriptor_to_json(bytes);
        EXPECT_TRUE(document.contains("tag")) << document;
        EXPECT_EQ(descriptor_from_json(JsonNode(document)), bytes);
    }
}

TEST(MultiplexFile, NamesTheFieldWhatStandsThereAndWhatWasExpected) {
    const auto pmt = [](const std::string& fields) {
        return R"({"pmts": [{"pid": 256, "program_number": 1, "version_number": 0, )"
               R"("pcr_pid": 257, )" +
               fields + "}]}";
    };
    const auto with_descriptor = [&](const std::string& text) {
        return pmt(R"("descriptors": [)" + text + "]");
    };
    const std::string name(253, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"", "not JSON: line 1, column 1"},
        {"{\n  \"pat\": {]}", "not JSON: line 2, column 11"},
        {"{\"pat\": 1e999}", "not JSON: number overflow"},
        {"[]", "found an array, expected an object with the fields pat, cat, sdt, pmts"},
        {"{}", "found an object, expected at least one table"},
        {R"({"pta": {}})", R"(found the field "pta", expected only pat, cat, sdt, pmts)"},
        {R"({"cat": {"version_number": 1}, "cat": {"version_number": 2}})",
         R"(found the field "cat" twice in one object)"},
        {R"({"pat": {"version_number": 0}})", "pat.transport_stream_id: missing"},
        {R"({"cat": {"version_number": 1.5}})",
         "cat.version_number: found 1.5, expected a number from 0 to 255"},
        {R"({"cat": {"version_number": -1}})", "cat.version_number: found -1"},
        {R"({"cat": {"version_number": 18446744073709551615}})",
         "cat.version_number: found"},
        {R"({"cat": {"version_number": "0x"}})", "cat.version_number: found \"0x\""},
        {R"({"cat": {"version_number": "0x1g"}})", "cat.version_number: found \"0x1g\""},
        {pmt(R"("streams": [{"stream_type": 2, "elementary_pid": "0x2000"}])"),
         "pmts[0].streams[0].elementary_pid: found \"0x2000\", expected a number from 0 "
         "to "
         "8191"},
        {pmt(R"("streams": {})"), "pmts[0].streams: found an object, expected an array"},
        {R"({"pmts": [{"pid":1,"program_number":7,"version_number":0,"pcr_pid":1},
                      {"pid":2,"program_number":7,"version_number":0,"pcr_pid":1}]})",
         "pmts[1].program_number: found 7, expected one PMT per service: pmts[0]"},
        {with_descriptor(R"({"tag": 1, "data": "0"})"),
         "pmts[0].descriptors[0].data: found \"0\", expected bytes as pairs"},
        {with_descriptor(R"({"tag": 1, "data": ")" + std::string(512, 'a') + "\"}"),
         "pmts[0].descriptors[0].data: found \"aaaaaaaaaa"},
        {with_descriptor(R"({"tag": 1, "ca": {"ca_system_id": 1, "ca_pid": 1}})"),
         "pmts[0].descriptors[0]: found the field \"tag\", expected only ca"},
        {with_descriptor(R"({"service": {"service_type": 1, "provider_name": "", )"
                         R"("service_name": ")" +
                         name + "\"}}"),
         "pmts[0].descriptors[0].service: found an object, expected names of at most "
         "252"},
        {with_descriptor(R"({"service": {"service_type": 1, "provider_name": "a\nb", )"
                         R"("service_name": ""}})"),
         R"(service.provider_name: found "a\nb", expected a name without control)"},
        {with_descriptor(R"({"iso_639_language": [{"language": "en"}]})"),
         "pmts[0].descriptors[0].iso_639_language[0].language: found \"en\""},
        {with_descriptor(R"({"ca": {"ca_system_id": 1, "ca_pid": 1, "private_data": ")" +
                         std::string(504, 'a') + "\"}}"),
         "ca.private_data: found \"aaaaaaaaaa"},
    };
    for (const auto& [content, expected] : cases) {
        EXPECT_THAT(mistake_in(content), HasSubstr(expected)) << content;
    }
    EXPECT_EQ(
        mistake_in("// comments may stand\n" + pmt(R"(/* anywhere */ "streams": [])")),
        "");
}

TEST(MultiplexFile, TakesATableFromOneFileOnly) {
    const std::string cat = R"({"cat": {"version_number": 1}})";
    const TemporaryFile file(cat);
    EXPECT_TRUE(read_multiplex_files({file.path()}).cat);
    EXPECT_THROW((void)read_multiplex_files({file.path(), file.path()}), FileMistake);
    EXPECT_THROW((void)read_multiplex_files({testing::TempDir()}), FileMistake);
    EXPECT_THROW((void)read_multiplex_files({"/nonexistent"}), FileMistake);
}

// Whatever a file holds, it is tables or a mistake that is named.
TEST(MultiplexFile, SurvivesHostileFiles) {
    std::ostringstream example;
    example << std::ifstream(KESTAN_EXAMPLES "/small.json").rdbuf();
    ASSERT_EQ(mistake_in(example.str()), "");
    const std::string snippets[] = {
        "[",
        "]",
        "{",
        "}",
        "\"",
        ",",
        ":",
        "-1",
        "1e400",
        "null",
        "\"0xFFFFFFFFFFFFFFFFF\"",
        "\xC3",
        "\xFF",
        std::string(1, '\0'),
        "\\u0000",
        "\\uD800",
        "99999999999999999999",
    };
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        std::string text = example.str();
        for (auto changes = random() % 3 + 1; changes != 0; --changes) {
            const auto at = random() % text.size();
            const auto length = std::min<std::size_t>(random() % 20, text.size() - at);
            text.replace(at, length,
                         random() % 2 == 0 ? snippets[random() % std::size(snippets)]
                                           : text.substr(random() % text.size(), length));
        }
        if (!mistake_in(text).empty()) continue;
        const Multiplex read = read_text(json::parse(text, nullptr, true, true).dump());
        expect_equal(read_text(multiplex_to_json(read).dump()), read);
    }
    for (const char* nested : {"[", R"({"pat":)", R"({"cat":{"descriptors":[[)"}) {
        std::string text;
        for (int depth = 0; depth < 100000; ++depth) text += nested;
        EXPECT_NE(mistake_in(text), "");
    }
    const std::string deep(100000, '[');
    EXPECT_THAT(mistake_in(R"({"pat":)" + deep + std::string(100000, ']') + "}"),
                HasSubstr("pat: found an array"));
}

}  // namespace
