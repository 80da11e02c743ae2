// Thousands of random calls of all nine methods, hostile values among them, with the
// pacing loop between them: after each, its result and the wire are what they must be.

#include <gtest/gtest.h>

#include "mux/slot_time.h"
#include "tests/support/accountant.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr int kCalls = 10000;

// Long enough for every table to be played once, and not much longer.
constexpr std::int64_t kBetweenCallsNs = 1100 * kNsPerMs;

class Caller {
public:
    explicit Caller(Accountant& service) : service_(service) {}

    void call_something() {
        switch (random_.below(12)) {
            case 0:
                return call_rarely();
            case 1:
                return call(random_.pat(1 + random_.below(150)),
                            [&](const PAT& pat) { return service_.NewPAT(pat); });
            case 2:
                return call(random_.cat(random_.below(1500)),
                            [&](const CAT& cat) { return service_.NewCAT(cat); });
            case 3:
                return call(random_.sdt(random_.below(30), random_.below(100)),
                            [&](const SDT& sdt) { return service_.NewSDTActual(sdt); });
            case 4:
            case 5:
                return service_.StopPMT(bits(service()), bits(pid()));
            default:
                return call_new_pmt();
        }
    }

private:
    // `call` with a table that is spoilt now and then, and has a large version then and
    // now.
    template <typename Table, typename Call>
    void call(Table table, Call call) {
        std::int32_t expected = table.version_number;
        if (random_.below(5) == 0) {
            random_.spoil(table);
            expected = -1;
        } else if (random_.below(8) == 0) {
            table.version_number += 32;
            expected = 0;
        }
        EXPECT_EQ(call(table), expected);
    }

    void call_new_pmt() {
        const PMT pmt = random_.pmt(service(), random_.below(1009));
        if (random_.below(16) == 0) {
            const auto bad_pid = static_cast<int>(0x2000 + random_.below(0xE000));
            EXPECT_EQ(service_.NewPMT(pmt, bits(bad_pid)), -1);
            return;
        }
        call(pmt, [&](const PMT& table) { return service_.NewPMT(table, bits(pid())); });
    }

    void call_rarely() {
        switch (random_.below(10)) {
            case 0:
                return service_.ClearAllTables();
            case 1:
                return service_.restart();
            case 2:
            case 3:
                return service_.ClearCAT();
            case 4:
                return service_.newScramblingConfig({});
            default:
                return service_.EMM({});
        }
    }

    int service() {
        constexpr int services[] = {1, 2, 3, 4, 5, 0x7FFF, 0x8001, 0xFFFF};
        return services[random_.below(std::size(services))];
    }

    int pid() {
        constexpr int pids[] = {0x20, 0x21, 0x1000, 0x1FFF};
        return pids[random_.below(std::size(pids))];
    }

    static std::int16_t bits(int value) {
        return static_cast<std::int16_t>(static_cast<std::uint16_t>(value));
    }

    RandomTables random_{2026};
    Accountant& service_;
};

TEST(HandlerModel, AgreesWithTheHandlerAfterEveryCall) {
    fake_framework::clock = {};
    Playout playout(2000);
    Wire wire;
    playout.on_datagram = [&](const Datagram& datagram) { wire.push(datagram.bytes); };
    Accountant service(wire);
    Caller caller(service);
    int calls = 0;
    std::function<void()> step = [&] {
        service.check();
        if (testing::Test::HasFailure()) GTEST_FAIL() << "after call " << calls;
        wire.forget();
        wire.allow_no_breaks();
        caller.call_something();
        ++calls;
        playout.at((calls + 1) * kBetweenCallsNs, step);
    };
    playout.at(kBetweenCallsNs, step);
    playout.run_for((kCalls + 1) * kBetweenCallsNs);
    EXPECT_GE(calls, kCalls);
}

}  // namespace
