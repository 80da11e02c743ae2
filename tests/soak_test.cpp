// Long runs at 1,000 kbit/s on the simulated clock: random calls of all methods that do
// something, hostile values among them, and between them a receiver that checks every
// packet, every table and every interval.
//
// KESTAN_SOAK_DAYS gives the length of a run in days of stream time, with a call every
// seven seconds; without it there are three hours, with a call as soon as every table has
// been played once.

#include <cstdlib>

#include <gtest/gtest.h>

#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "mux/muxer.h"
#include "tests/support/accountant.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
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

class Caller {
public:
    explicit Caller(Accountant& service) : service_(service) {}

    void call_something() {
        switch (random_.below(12)) {
            case 0:
                return call_rarely();
            case 1:
                return call(random_.pat(1 + random_.below(350)),
                            [&](const PAT& pat) { return service_.NewPAT(pat); });
            case 2:
                return call(random_.cat(random_.below(5000)),
                            [&](const CAT& cat) { return service_.NewCAT(cat); });
            case 3:
                return call(random_.sdt(random_.below(40), descriptor_bytes()),
                            [&](const SDT& sdt) { return service_.NewSDTActual(sdt); });
            case 4:
            case 5:
                return service_.StopPMT(service(), pid());
            default:
                return call(random_.pmt(service() & 0xFFFF, random_.below(1009)),
                            [&](const PMT& pmt) { return service_.NewPMT(pmt, pid()); });
        }
    }

private:
    // A table that is out of range now and then, and has a large version then and now.
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

    void call_rarely() {
        switch (random_.below(5)) {
            case 0:
                return service_.ClearAllTables();
            case 1:
                return service_.restart();
            case 2:
                EXPECT_EQ(service_.NewPMT(random_.pmt(1, 9), 0x2000), -1);
                return;
            default:
                return service_.ClearCAT();
        }
    }

    // Of each service; many of some sizes fit no section to the last byte.
    std::size_t descriptor_bytes() { return random_.below(random_.below(2) ? 60 : 400); }

    std::int16_t service() { return one_of({1, 2, 3, 4, 5, 0x7FFF, -0x7FFF, -1}); }
    std::int16_t pid() { return one_of({0x20, 0x21, 0x1000, 0x1FFF}); }

    std::int16_t one_of(const std::vector<std::int16_t>& values) {
        return values[random_.below(values.size())];
    }

    RandomTables random_{2026};
    Accountant& service_;
};

class Soak {
public:
    explicit Soak(std::int64_t between_calls_ns) : between_calls_ns_(between_calls_ns) {
        fake_framework::clock = {};
        playout_.on_datagram = [&](const Datagram& datagram) {
            packets += datagram.packets();
            if (!testing::Test::HasFailure()) wire_.push(datagram);
        };
    }

    void run_for(std::int64_t ns) {
        std::function<void()> step = [&] {
            service_.check();
            check_intervals();
            if (testing::Test::HasFailure()) GTEST_FAIL() << "after call " << calls;
            wire_.forget();
            wire_.allow_no_breaks();
            caller_.call_something();
            static_cast<void>(fake_framework::take_log());
            playout_.at((++calls + 1) * between_calls_ns_, step);
        };
        playout_.at(between_calls_ns_, step);
        playout_.run_for(ns);
        EXPECT_GE(calls, ns / between_calls_ns_);
    }

    std::int64_t calls = 0;
    std::uint64_t packets = 0;
    std::int64_t worst_ns = 0;      // deviation from the period of PAT, CAT, SDT and TDT
    std::int64_t worst_pmt_ns = 0;  // interval of a PMT

private:
    // A packet that is due waits for one of each other stream at most, and a PMT may be
    // overtaken once by each of its neighbours.
    void check_intervals() {
        constexpr std::uint64_t most_streams = 8;
        const auto wait_ns =
            static_cast<std::int64_t>(most_streams * the_muxer->packet_interval_ns);
        for (const auto& [pid, seen] : wire_.pids()) {
            if (seen.longest_ns == 0) continue;
            const auto period = kPeriodsNs.find(pid);
            if (period == kPeriodsNs.end()) {
                worst_pmt_ns = std::max(worst_pmt_ns, seen.longest_ns);
                EXPECT_LE(seen.longest_ns, 2 * kPmtPeriodNs + wait_ns) << pid;
                continue;
            }
            const std::int64_t off_ns = std::max(seen.longest_ns - period->second,
                                                 period->second - seen.shortest_ns);
            worst_ns = std::max(worst_ns, off_ns);
            EXPECT_LE(off_ns, wait_ns) << pid;
        }
    }

    std::int64_t between_calls_ns_;
    Playout playout_{kBitrateKbps};
    Wire wire_;
    Accountant service_{wire_};
    Caller caller_{service_};
};

TEST(Soak, BreaksNothing) {
    const char* const days = std::getenv("KESTAN_SOAK_DAYS");
    const double hours = days == nullptr ? 3 : std::atof(days) * 24;
    ASSERT_GT(hours, 0);
    Soak soak(days == nullptr ? kEachTableOnceNs : 7 * kNsPerSecond);
    soak.run_for(static_cast<std::int64_t>(hours * 60) * kMinuteNs);
    std::printf(
        "%.0f hours: %llu packets, %lld calls; PAT, CAT, SDT, TDT off by %.1f slots at "
        "most, PMT intervals up to %.0f ms\n",
        hours, static_cast<unsigned long long>(soak.packets),
        static_cast<long long>(soak.calls), static_cast<double>(soak.worst_ns) / 1504000,
        static_cast<double>(soak.worst_pmt_ns) / kNsPerMs);
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
