// The control service against a small model of what should be installed: thousands of
// random calls of all nine methods, hostile values among them, with the pacing loop
// between them.

#include <gtest/gtest.h>

#include <optional>

#include "control/mux_control_handler.h"
#include "mux/muxer.h"
#include "mux/slot_time.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"
#include "tests/support/wire.h"

using namespace orvel::thrift::dvb_tables;
using orvel::thrift::ci_module::EMMData;
using orvel::thrift::ci_module::ScramblingConfig;

namespace {

constexpr std::uint16_t kTdtPid = 0x14;
constexpr std::uint16_t kTablePids[] = {0x00, 0x01, 0x11};  // PAT, CAT, SDT
constexpr int kCalls = 10000;

// Long enough for every table to be played once, and not much longer.
constexpr std::int64_t kBetweenCallsNs = 1100 * kNsPerMs;

class Model {
public:
    Model() { handler_.emplace(); }

    void call_something() {
        switch (random_.below(12)) {
            case 0:
                return call_rarely();
            case 1:
                return new_table(random_.pat(1 + random_.below(150)), pat_, 0x00,
                                 &cm_MuxControlSrvHandler::NewPAT);
            case 2:
                return new_table(random_.cat(random_.below(1500)), cat_, 0x01,
                                 &cm_MuxControlSrvHandler::NewCAT);
            case 3:
                return new_table(random_.sdt(random_.below(30), random_.below(100)), sdt_,
                                 0x11, &cm_MuxControlSrvHandler::NewSDTActual);
            case 4:
            case 5:
                return stop_pmt();
            default:
                return new_pmt();
        }
    }

    void check() const {
        const Multiplex seen = wire.tables(pids_);
        EXPECT_EQ(seen.pat, pat_);
        EXPECT_EQ(seen.cat, cat_);
        EXPECT_EQ(seen.sdt, sdt_);
        EXPECT_EQ(seen.pmts.size(), pmts_.size());
        for (const PmtOnPid& pmt : seen.pmts) {
            const auto service = static_cast<std::uint16_t>(pmt.pmt.program_number);
            EXPECT_EQ(pmt.pmt, pmts_.at(service));
        }
        std::map<std::uint16_t, std::size_t> services_on;
        for (const auto& [service, pid] : pids_) ++services_on[pid];
        for (const auto& [pid, count] : services_on) {
            EXPECT_EQ(wire.pids().at(pid).sections.size(), count) << pid;
        }
        const std::size_t fixed =
            1 + pat_.has_value() + cat_.has_value() + sdt_.has_value();
        EXPECT_EQ(wire.pids().size(), fixed + services_on.size());
        EXPECT_EQ(wire.pids().count(kTdtPid), 1u);
        EXPECT_EQ(the_muxer->streams.size(), 4 + services_on.size());
    }

    Wire wire;

private:
    template <typename Table, typename Method>
    void new_table(Table table, std::optional<Table>& installed, std::uint16_t pid,
                   Method method) {
        const bool spoilt = random_.below(4) == 0;
        if (spoilt) random_.spoil(table);
        if (!spoilt && random_.below(8) == 0) table.version_number += 32;
        const std::int32_t result = ((*handler_).*method)(table);
        if (spoilt) {
            EXPECT_EQ(result, -1);
            return;
        }
        if (table.version_number > 31) table.version_number = 0;
        EXPECT_EQ(result, table.version_number);
        installed = table;
        wire.allow_break(pid);
    }

    void new_pmt() {
        const std::uint16_t service = random_service();
        PMT pmt = random_.pmt(service, random_.below(1009));
        const bool spoilt = random_.below(8) == 0;
        if (spoilt) random_.spoil(pmt);
        const bool bad_pid = random_.below(16) == 0;
        const auto pid = static_cast<std::uint16_t>(
            bad_pid ? 0x2000 + random_.below(0xE000) : random_pid());
        const std::int32_t result = handler_->NewPMT(pmt, static_cast<std::int16_t>(pid));
        if (spoilt || bad_pid) {
            EXPECT_EQ(result, -1);
            return;
        }
        EXPECT_EQ(result, pmt.version_number);
        const auto known = pids_.find(service);
        if (known != pids_.end() && known->second != pid) return;
        pids_[service] = pid;
        pmts_[service] = pmt;
        wire.allow_break(pid);
    }

    void stop_pmt() {
        const std::uint16_t service = random_service();
        handler_->StopPMT(static_cast<std::int16_t>(service),
                          static_cast<std::int16_t>(random_pid()));
        forget_pmt(service);
    }

    void forget_pmt(std::uint16_t service) {
        const auto known = pids_.find(service);
        if (known == pids_.end()) return;
        const std::uint16_t pid = known->second;
        pids_.erase(known);
        pmts_.erase(service);
        wire.allow_break(pid);
        for (const auto& [other, other_pid] : pids_) {
            if (other_pid == pid) return;
        }
        wire.expect_new_stream(pid);
    }

    void call_rarely() {
        switch (random_.below(10)) {
            case 0:
                return clear_everything(/*restart=*/false);
            case 1:
                return clear_everything(/*restart=*/true);
            case 2:
            case 3:
                handler_->ClearCAT();
                cat_.reset();
                wire.allow_break(0x01);
                return;
            case 4:
                return handler_->newScramblingConfig(ScramblingConfig());
            default:
                return handler_->EMM(EMMData());
        }
    }

    // By ClearAllTables, or with the handler.
    void clear_everything(bool restart) {
        if (restart) {
            handler_.reset();
            EXPECT_EQ(the_muxer->streams.size(), 0u);
            handler_.emplace();
            for (const std::uint16_t pid : kTablePids) wire.expect_new_stream(pid);
            wire.expect_new_stream(kTdtPid);
        } else {
            handler_->ClearAllTables();
            for (const std::uint16_t pid : kTablePids) wire.allow_break(pid);
        }
        pat_.reset();
        cat_.reset();
        sdt_.reset();
        while (!pids_.empty()) forget_pmt(pids_.begin()->first);
    }

    std::uint16_t random_service() {
        constexpr std::uint16_t services[] = {1, 2, 3, 4, 5, 0x7FFF, 0x8001, 0xFFFF};
        return services[random_.below(std::size(services))];
    }

    std::uint16_t random_pid() {
        constexpr std::uint16_t pids[] = {0x20, 0x21, 0x1000, 0x1FFF};
        return pids[random_.below(std::size(pids))];
    }

    RandomTables random_{2026};
    std::optional<cm_MuxControlSrvHandler> handler_;
    std::optional<PAT> pat_;
    std::optional<CAT> cat_;
    std::optional<SDT> sdt_;
    std::map<std::uint16_t, std::uint16_t> pids_;  // by service
    std::map<std::uint16_t, PMT> pmts_;
};

TEST(HandlerModel, AgreesWithTheHandlerAfterEveryCall) {
    fake_framework::clock = {};
    Playout playout(2000);
    Model model;
    playout.on_datagram = [&](const Datagram& datagram) {
        model.wire.push(datagram.bytes);
    };
    int calls = 0;
    std::function<void()> step = [&] {
        model.check();
        if (testing::Test::HasFailure()) GTEST_FAIL() << "after call " << calls;
        model.wire.forget();
        model.wire.allow_no_breaks();
        model.call_something();
        ++calls;
        playout.at((calls + 1) * kBetweenCallsNs, step);
    };
    playout.at(kBetweenCallsNs, step);
    playout.run_for((kCalls + 1) * kBetweenCallsNs);
    EXPECT_GE(calls, kCalls);
}

}  // namespace
