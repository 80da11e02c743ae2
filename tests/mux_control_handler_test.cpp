#include "control/mux_control_handler.h"

#include <array>
#include <map>

#include <gmock/gmock.h>

#include "dvb/nanoseconds.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;

namespace {

using fake_framework::take_log;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Pair;

class MuxControlHandler : public testing::Test {
protected:
    MuxControlHandler() { static_cast<void>(take_log()); }

    Playout playout_{10000};
    RandomTables random_{11};
    cm_MuxControlSrvHandler handler_;
};

TEST_F(MuxControlHandler, PlaysInTheOrderOfRegistrationEachTableAtItsPeriod) {
    handler_.NewSDTActual(random_.sdt(1, 0));
    handler_.NewCAT(random_.cat(10));
    handler_.NewPMT(random_.pmt(1, 50), 0x20);
    handler_.NewPAT(random_.pat(1));
    const auto datagrams = playout_.run_for(10 * kNsPerSecond + kNsPerMs);
    EXPECT_THAT(datagrams.at(0).pids(), ElementsAre(0x00, 0x01, 0x14, 0x11, 0x20));
    std::map<int, int> packets;
    for (const Datagram& datagram : datagrams) {
        for (const int pid : datagram.pids()) ++packets[pid];
    }
    EXPECT_THAT(packets, ElementsAre(Pair(0x00, 51), Pair(0x01, 21), Pair(0x11, 21),
                                     Pair(0x14, 11), Pair(0x20, 51)));
}

TEST_F(MuxControlHandler, LogsWhatItPlaysAndNothingElse) {
    PAT pat = random_.pat(2);
    CAT cat = random_.cat(10);
    SDT sdt = random_.sdt(2, 20);
    PMT pmt = random_.pmt(0x8001, 100);
    pat.transport_stream_id = sdt.transport_stream_id = 0x8002;
    sdt.original_network_id = 0xFFFF;
    const auto play_all = [&](std::int32_t version) {
        pat.version_number = cat.version_number = sdt.version_number =
            pmt.version_number = version;
        return std::array{handler_.NewPAT(pat), handler_.NewCAT(cat),
                          handler_.NewSDTActual(sdt), handler_.NewPMT(pmt, 0x1FFF)};
    };
    EXPECT_THAT(play_all(256), Each(-1));
    EXPECT_THAT(take_log(),
                AllOf(testing::SizeIs(4),
                      Each(EndsWith(": version_number is 256, 0 to 255 fit"))));
    for (const auto& [given, played] : {std::pair{31, 31}, {32, 0}, {255, 0}, {0, 0}}) {
        EXPECT_THAT(play_all(given), Each(played));
        const std::string version = "version=" + std::to_string(played);
        EXPECT_THAT(take_log(),
                    ElementsAre("6 New PAT tsid=8002 " + version, "6 New CAT " + version,
                                "6 New SDTact tsid=8002 onid=ffff " + version,
                                "6 New PMT sid=8001 pid=1fff " + version));
    }
    for (const auto& [pid, said] : {std::pair{0x2000, "8192"}, {-0x8000, "32768"}}) {
        EXPECT_EQ(handler_.NewPMT(pmt, static_cast<std::int16_t>(pid)), -1);
        EXPECT_THAT(take_log(), ElementsAre("4 PMT of service 32769: pid is " +
                                            std::string(said) + ", 0 to 8191 fit"));
    }
    handler_.StopPMT(-0x7FFF, -1);
    handler_.ClearCAT();
    handler_.ClearAllTables();
    handler_.newScramblingConfig({});
    handler_.EMM({});
    EXPECT_THAT(take_log(), ElementsAre("6 Clear PMT 8001 on PID ffff", "6 Clear CAT",
                                        "6 Clearing all tables"));
}

}  // namespace
