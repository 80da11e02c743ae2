#include "thrift/table_refusal.h"

#include <gmock/gmock.h>

#include "framework/table_converters.h"
#include "tests/support/fake_framework.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// The reason given in advance, which is also what the converter logs.
template <typename Table, typename Convert>
std::string reason(const Table& table, Convert convert) {
    static_cast<void>(fake_framework::take_log());
    EXPECT_EQ(convert(table), nullptr);
    const std::string reason = refusal_reason(table).value_or("");
    EXPECT_THAT(fake_framework::take_log(), testing::ElementsAre("4 " + reason));
    return reason;
}

TEST(TableRefusal, SaysWhatIsWrongAndWhere) {
    RandomTables random(5);
    PAT pat = random.pat(25601);
    EXPECT_EQ(reason(pat, t2dPAT), "PAT: the table has 25,601 programs, 25,600 fit");
    pat.programs[1].program_number = 7;
    pat.programs[1].pid = 0;
    EXPECT_EQ(reason(pat, t2dPAT), "PAT: program 7: pid is 0, 1 to 8191 fit");

    CAT cat;
    cat.descriptors = random.descriptors(257 * 1012);
    EXPECT_THAT(reason(cat, t2dCAT),
                testing::MatchesRegex("CAT: descriptors take 2.. sections, 256 fit"));
    cat.descriptors[1].data.assign(256, 'x');
    EXPECT_EQ(reason(cat, t2dCAT), "CAT: descriptors[1]: data takes 256 bytes, 255 fit");

    SDT sdt = random.sdt(257, 1004);
    EXPECT_EQ(reason(sdt, t2dSDT), "SDT: services take 257 sections, 256 fit");
    sdt.services[2].service_id = 7;
    sdt.services[2].descriptors = random.descriptors(1006);
    EXPECT_EQ(reason(sdt, t2dSDT),
              "SDT: service 7: descriptors take 1,006 bytes, 1,004 fit");
    sdt.services[2].running_status = 9;
    EXPECT_EQ(reason(sdt, t2dSDT), "SDT: service 7: running_status is 9, 0 to 7 fit");

    PMT pmt;
    pmt.program_number = 102;
    pmt.descriptors = random.descriptors(301);
    pmt.streams.resize(202);
    EXPECT_EQ(reason(pmt, t2dPMT),
              "PMT of service 102: descriptors and streams take 1,311 bytes, 1,008 fit");
    pmt.streams[1].descriptors.resize(1);
    pmt.streams[1].descriptors[0].tag = -1;
    EXPECT_EQ(reason(pmt, t2dPMT),
              "PMT of service 102: streams[1]: descriptors[0]: tag is -1, 0 to 255 fit");
}

}  // namespace
