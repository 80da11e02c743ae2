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

const std::string kKestan = KESTAN_BIN "/kestan";
const std::string kMonitor = KESTAN_BIN "/kestan-monitor";
const std::string kAddress = "127.0.0.1:5432";

nlohmann::json measure(const std::string& seconds, int expected_status) {
    const Ended ended = run({kMonitor, kAddress, "-d", seconds, "--json", "--check"});
    EXPECT_EQ(ended.status, expected_status) << ended.output << ended.error;
    return nlohmann::json::parse(ended.output);
}

TEST(KestanMonitor, PassesAStreamInOrderAndListsWhatIsMissing) {
    std::optional<Program> daemon(std::in_place,
                                  std::vector{kKestan, std::string("-O127.0.0.1/5432")});
    ControlClient client;
    PAT pat;
    pat.version_number = 3;
    pat.programs.resize(2);
    for (int i = 0; i < 2; ++i) {
        PMT pmt;
        pmt.program_number = pat.programs[i].program_number = 100 + i;
        pmt.version_number = i;
        pmt.pcr_pid = 0x1FFF;
        pat.programs[i].pid = 0x300;
        ASSERT_EQ(client.NewPMT(pmt, 0x300), i);
    }
    SDT sdt;
    ASSERT_EQ(client.NewPAT(pat), 3);
    ASSERT_EQ(client.NewSDTActual(sdt), 0);

    nlohmann::json report = measure("1.5", 0);
    EXPECT_TRUE(report["outside_limits"].empty());
    const auto& pat_found = report["pids"][0]["tables"][0];
    EXPECT_EQ(pat_found["version"], 3);
    EXPECT_NEAR(pat_found["repetition_ms"]["mean"], 200, 20);
    const auto& pmts = report["pids"][3];
    EXPECT_EQ(pmts["pid"], 0x300);
    EXPECT_EQ(pmts["tables"][1]["service_id"], 101);
    EXPECT_EQ(pmts["tables"][1]["version"], 1);

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
    for (const auto& [arguments, said] :
         std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"127.0.0.1/5432"}, "not an IPv4 address with a port"},
             {{"127.0.0.1:0"}, "not an IPv4 address with a port"},
             {{"127.0.0.1:65536"}, "not an IPv4 address with a port"},
             {{"192.0.2.1:5432"}, "give an address of this machine"},
             {{"226.0.0.1:5432", "--interface", "nowhere0"}, "\"ip link\" lists"},
             {{"226.0.0.1:5432", "--duration", "-1"}, "--duration"},
             {{}, "ADDRESS:PORT"}}) {
        std::vector<std::string> all = {kMonitor};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Ended ended = run(all);
        EXPECT_EQ(ended.status, 2) << ended.output;
        EXPECT_THAT(ended.error, HasSubstr(said));
    }
}

}  // namespace
