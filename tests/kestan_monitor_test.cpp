// kestan-monitor as its user runs it, on a daemon's stream.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>

#include <nlohmann/json.hpp>

#include "tests/support/control_client.h"
#include "tests/support/program.h"

using namespace orvel::thrift::dvb_tables;
using namespace std::chrono_literals;

namespace {

using testing::HasSubstr;

const std::string kMonitor = KESTAN_BIN "/kestan-monitor";
const std::string kAddress = "127.0.0.1:5432";

nlohmann::json measure(const std::string& seconds, int expected_status) {
    const Ended ended = run({kMonitor, kAddress, "-d", seconds, "--json", "--check"});
    EXPECT_EQ(ended.status, expected_status) << ended.output << ended.error;
    return nlohmann::json::parse(ended.output);
}

// Real time, so with room for a busy machine: the exact intervals are the simulated
// clock's.
TEST(KestanMonitor, FindsEachTableAtItsPeriodAndWhatIsMissing) {
    std::optional<Program> daemon(
        std::in_place,
        std::vector<std::string>{KESTAN_BIN "/kestan", "-O", "127.0.0.1/5432"});
    ControlClient client;
    PAT pat;
    pat.version_number = 3;
    pat.programs.resize(2);
    for (std::size_t i = 0; i < 2; ++i) {
        PMT pmt;
        pmt.program_number = pat.programs[i].program_number = static_cast<int>(100 + i);
        pat.programs[i].pid = 0x300;
        client.NewPMT(pmt, 0x300);
    }
    client.NewPAT(pat);
    client.NewSDTActual(SDT());

    nlohmann::json report = measure("4.5", 0);
    EXPECT_TRUE(report["outside_limits"].empty());
    const auto& pids = report["pids"];
    EXPECT_EQ(pids[0]["tables"][0]["version"], 3);
    EXPECT_EQ(pids[3]["pid"], 0x300);
    EXPECT_EQ(pids[3]["tables"][1]["service_id"], 101);
    const int periods_ms[] = {200, 500, 1000, 200};  // PAT, SDT, TDT, PMTs
    for (std::size_t i = 0; i < 4; ++i) {
        const double mean = pids[i]["tables"][0]["repetition_ms"]["mean"];
        EXPECT_NEAR(mean, periods_ms[i], periods_ms[i] / 20.0) << pids[i];
    }

    client.StopPMT(100, 0x300);
    report = measure("0.8", 1);
    EXPECT_EQ(report["outside_limits"].size(), 1u);
    EXPECT_EQ(report["outside_limits"][0]["check"], "repetition");
    EXPECT_THAT(report["outside_limits"][0]["text"], HasSubstr("PMT of service 100"));

    Program monitor({kMonitor, kAddress});
    std::this_thread::sleep_for(500ms);
    daemon.reset();
    monitor.signal(SIGINT);
    EXPECT_EQ(monitor.wait(5s), 0);
    EXPECT_THAT(monitor.output(), HasSubstr("0x0000  PAT  "));
    EXPECT_EQ(measure("0.1", 1)["outside_limits"][0]["check"], "reception");
}

TEST(KestanMonitor, SaysWhyItCannotReceive) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{kMonitor, "127.0.0.1:0"}, "not an IPv4 address with a port"},
        {{kMonitor, "127.0.0.1:65536"}, "not an IPv4 address with a port"},
        {{kMonitor, "192.0.2.1:5432"}, "give an address of this machine"},
        {{kMonitor, "226.0.0.1:5432", "-i", "nowhere0"}, "\"ip link\" lists"},
        {{kMonitor}, "ADDRESS:PORT"}};
    for (const auto& [arguments, said] : cases) {
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, 2) << said;
        EXPECT_THAT(ended.error, HasSubstr(said));
    }
}

}  // namespace
