// Long runs at 1,000 kbit/s on the simulated clock: random calls of all methods, hostile
// values among them. Between the calls a receiver checks every packet, every section and
// every interval.
//
// KESTAN_SOAK_DAYS gives the length of a run in days of stream time, with a call every
// seven seconds. Without it there are three hours, with a call as soon as every table has
// been played once.

#include <cstdlib>

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "dvb/table_kind.h"
#include "mux/muxer.h"
#include "tests/support/fake_framework.h"
#include "tests/support/handler_model.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint32_t kBitrateKbps = 1000;
constexpr std::int64_t kEachTableOnceNs = 1100 * kNsPerMs;
constexpr std::int64_t kMinuteNs = 60 * kNsPerSecond;
constexpr std::int64_t kPmtPeriodNs = 200 * kNsPerMs;
const std::map<std::uint16_t, std::int64_t> kPeriodsNs = {{kPatPid, 200 * kNsPerMs},
                                                          {kCatPid, 500 * kNsPerMs},
                                                          {kSdtPid, 500 * kNsPerMs},
                                                          {kTdtPid, kNsPerSecond}};

class Soak {
public:
    explicit Soak(std::int64_t between_calls_ns) : between_calls_ns_(between_calls_ns) {
        fake_framework::clock = {};
        playout_.on_datagram = [&](const Datagram& datagram) {
            if (!testing::Test::HasFailure()) receiver_.push(datagram);
        };
    }

    void run_for(std::int64_t ns) {
        std::int64_t calls = 0;
        const std::function<void()> step = [&] {
            service_.check();
            check_intervals();
            if (testing::Test::HasFailure()) GTEST_FAIL() << "after call " << calls;
            receiver_.forget();
            call_something();
            static_cast<void>(fake_framework::take_log());
            playout_.at((++calls + 1) * between_calls_ns_, step);
        };
        playout_.at(between_calls_ns_, step);
        playout_.run_for(ns);
        EXPECT_GE(calls, ns / between_calls_ns_);
    }

private:
    void call_something() {
        const std::int16_t service = one_of({1, 2, 3, 4, 5, 0x7FFF, -0x7FFF, -1});
        const std::int16_t pid = one_of({0x20, 0x21, 0x1000, 0x1FFF});
        switch (random_.below(60)) {
            case 0:
                return service_.ClearAllTables();
            case 1:
                return service_.restart();
            case 2:
            case 3:
                return service_.ClearCAT();
            case 4:
                EXPECT_EQ(service_.NewPMT(random_.pmt(1, 9), 0x2000), -1);
                return;
        }
        // The descriptors of each service. Some sizes fill a section to its last byte.
        const std::size_t descriptor_bytes = random_.below(random_.below(2) ? 60 : 400);
        switch (random_.below(11)) {
            case 0:
                return call(random_.pat(random_.below(350)),
                            [&](const PAT& pat) { return service_.NewPAT(pat); });
            case 1:
                return call(random_.cat(random_.below(5000)),
                            [&](const CAT& cat) { return service_.NewCAT(cat); });
            case 2:
                return call(random_.sdt(random_.below(40), descriptor_bytes),
                            [&](const SDT& sdt) { return service_.NewSDTActual(sdt); });
            case 3:
            case 4:
                return service_.StopPMT(service, pid);
            default:
                return call(random_.pmt(service & 0xFFFF, random_.below(1009)),
                            [&](const PMT& pmt) { return service_.NewPMT(pmt, pid); });
        }
    }

    // Sometimes gives the table a version_number that is out of range.
    template <typename Table, typename Call>
    void call(Table table, const Call& call) {
        std::int32_t expected = table.version_number;
        switch (random_.below(10)) {
            case 0:
                table.version_number = random_.below(2) == 0 ? -1 : 256;
                expected = -1;
                break;
            case 1:
                table.version_number += 32;
                expected = 0;
        }
        EXPECT_EQ(call(table), expected);
    }

    std::int16_t one_of(const std::vector<std::int16_t>& values) {
        return values[random_.below(values.size())];
    }

    // A due packet waits for at most one packet of each other stream. Each neighbour on
    // its PID can overtake a PMT once.
    void check_intervals() {
        constexpr std::uint64_t most_streams = 8;
        const auto wait_ns =
            static_cast<std::int64_t>(most_streams * the_muxer->packet_interval_ns);
        for (const auto& [pid, seen] : receiver_.pids()) {
            if (seen.longest_ns == 0) continue;
            const auto period = kPeriodsNs.find(pid);
            if (period == kPeriodsNs.end()) {
                EXPECT_LE(seen.longest_ns, 2 * kPmtPeriodNs + wait_ns) << pid;
                continue;
            }
            EXPECT_LE(seen.longest_ns, period->second + wait_ns) << pid;
            EXPECT_GE(seen.shortest_ns, period->second - wait_ns) << pid;
        }
    }

    std::int64_t between_calls_ns_;
    Playout playout_{kBitrateKbps};
    Receiver receiver_;
    HandlerModel service_{receiver_};
    RandomTables random_{2026};
};

TEST(Soak, KeepsEachPacketSectionAndIntervalRight) {
    const char* const days = std::getenv("KESTAN_SOAK_DAYS");
    const double hours = days == nullptr ? 3 : std::atof(days) * 24;
    ASSERT_GT(hours, 0);
    Soak(days == nullptr ? kEachTableOnceNs : 7 * kNsPerSecond)
        .run_for(static_cast<std::int64_t>(hours * 60) * kMinuteNs);
}

// Where counters of 31 and 32 bits end, in milliseconds (25 and 50 days), in hundredths
// of a second (249 and 497 days) and in seconds (68 and 136 years) of uptime.
TEST(Soak, CrossesTheEndsOfNarrowCounters) {
    for (const std::int64_t unit_ns : {kNsPerMs, 10 * kNsPerMs, kNsPerSecond}) {
        for (const std::int64_t end : {std::int64_t{1} << 31, std::int64_t{1} << 32}) {
            const std::int64_t before_ns = end * unit_ns - 5 * kMinuteNs;
            simulated_clock::advance(before_ns - simulated_clock::now_ns());
            Soak(kEachTableOnceNs).run_for(10 * kMinuteNs);
        }
    }
}

}  // namespace
