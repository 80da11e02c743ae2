#include "control/mux_control_handler.h"

#include <pthread.h>

#include <limits>
#include <optional>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "mux/muxer.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;

// The test program is linked so that these stand in for pthread_mutex_lock.
extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);

namespace {

using fake_framework::take_log;
using testing::ElementsAre;

int locks_until_failure = std::numeric_limits<int>::max();

class MuxControlHandler : public testing::Test {
protected:
    void SetUp() override {
        fake_framework::clock = {};
        handler_.emplace();
        static_cast<void>(take_log());
    }

    Playout playout_{10000};
    RandomTables random_{11};
    std::optional<cm_MuxControlSrvHandler> handler_;
};

TEST_F(MuxControlHandler, RegistersItsStreamsInTheOrderOfPolling) {
    handler_->NewSDTActual(random_.sdt(1, 0));
    handler_->NewCAT(random_.cat(10));
    handler_->NewPMT(random_.pmt(1, 50), 0x20);
    handler_->NewPAT(random_.pat(1));
    EXPECT_THAT(playout_.run_for(kNsPerMs).at(0).pids(),
                ElementsAre(0x00, 0x01, 0x14, 0x11, 0x20));
}

TEST_F(MuxControlHandler, UndoesItsRegistrationsWhenOneFails) {
    handler_.reset();
    for (int failing = 1; failing <= 4; ++failing) {  // each registration takes a lock
        locks_until_failure = failing;
        EXPECT_THROW(handler_.emplace(), std::system_error);
        EXPECT_EQ(the_muxer->streams.size(), 0u) << failing;
    }
}

TEST_F(MuxControlHandler, LogsWhatItPlaysAndNothingElse) {
    PAT pat = random_.pat(2);
    CAT cat = random_.cat(10);
    SDT sdt = random_.sdt(2, 20);
    PMT pmt = random_.pmt(0x8001, 100);
    pat.transport_stream_id = sdt.transport_stream_id = 0x8002;
    sdt.original_network_id = 0xFFFF;
    for (const auto& [given, played] : {std::pair{31, 31}, {32, 0}, {255, 0}, {0, 0}}) {
        pat.version_number = cat.version_number = sdt.version_number =
            pmt.version_number = given;
        EXPECT_EQ(handler_->NewPAT(pat), played);
        EXPECT_EQ(handler_->NewCAT(cat), played);
        EXPECT_EQ(handler_->NewSDTActual(sdt), played);
        EXPECT_EQ(handler_->NewPMT(pmt, 0x1FFF), played);
        const std::string version = "version=" + std::to_string(played);
        EXPECT_THAT(take_log(),
                    ElementsAre("6 New PAT tsid=8002 " + version, "6 New CAT " + version,
                                "6 New SDTact tsid=8002 onid=ffff " + version,
                                "6 New PMT sid=8001 pid=1fff " + version));
    }
    for (const std::int16_t pid :
         std::vector<std::int16_t>{0x2000, 0x7FFF, -0x8000, -1}) {
        EXPECT_EQ(handler_->NewPMT(pmt, pid), -1);
    }
    pat.version_number = 256;
    EXPECT_EQ(handler_->NewPAT(pat), -1);
    EXPECT_THAT(take_log(), ElementsAre("4 PAT: version_number is 256, 0 to 255 fit"));

    handler_->StopPMT(-0x7FFF, -1);
    handler_->ClearCAT();
    handler_->ClearAllTables();
    handler_->newScramblingConfig({});
    handler_->EMM({});
    EXPECT_THAT(take_log(), ElementsAre("6 Clear PMT 8001 on PID ffff", "6 Clear CAT",
                                        "6 Clearing all tables"));
}

}  // namespace

extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (--locks_until_failure > 0) return __real_pthread_mutex_lock(mutex);
    locks_until_failure = std::numeric_limits<int>::max();
    return EAGAIN;
}
