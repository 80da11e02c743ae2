// The daemon as a whole: what its user sees of it on the command line, on the wire and in
// the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <future>

#include <thrift/server/TSimpleServer.h>
#include <thrift/transport/TServerSocket.h>

#include "tests/support/control_client.h"
#include "tests/support/daemon.h"
#include "tests/support/own_network.h"
#include "tests/support/program.h"
#include "tests/support/random_tables.h"
#include "tests/support/udp_capture.h"
#include "tests/support/wire.h"
#include "thrift/cm_MuxNotifySrv.h"

using namespace orvel::thrift::dvb_tables;
using namespace std::chrono_literals;

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kKestan = KESTAN_BIN "/kestan";
constexpr std::uint16_t kPmtPid = 0x1FFE;

std::int64_t in_ms(std::int64_t ns) {
    return ns / 1000000;
}

Ended run_kestan(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kKestan);
    return run(std::move(arguments));
}

TEST(CommandLine, SaysWhatIsWrongInItsOwnWords) {
    const std::string hint = "Try `" + kKestan + " --help' for more information.\n";
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{"-s", "2"}, 1, "parameter range error: set must be <= 1\n"},
        {{"-s", "-1"}, 1, "parameter range error: set must be >= 0\n"},
        {{"-s", "4294967296"}, 1, "parameter range error: set must be <= 1\n"},
        {{"-l", "2"}, 1, "parameter range error: level must be >= 3\n"},
        {{"--level", "8"}, 1, "parameter range error: level must be <= 7\n"},
        {{"-b", "abc"}, 1, "parameter range error: bitrate must be >= 100\n"},
        {{"--bitrate=99"}, 1, "parameter range error: bitrate must be >= 100\n"},
        {{"-b", "100001"}, 1, "parameter range error: bitrate must be <= 100000\n"},
        {{"-b", "300", "-b", "1"}, 1, "parameter range error: bitrate must be >= 100\n"},
        {{"-t", "0", "-h"}, 1, "parameter range error: ttl must be >= 1\n"},
        {{"-v", "-t", "256"}, 1, "parameter range error: ttl must be <= 255\n"},
        {{"-x"}, 1, kKestan + ": invalid option -- 'x'\n" + hint},
        {{"--ttl"}, 1, kKestan + ": option '--ttl' requires an argument\n" + hint},
        {{"-O", "1.2.3/80"}, 1, hint},
        {{"-O", "1.2.3.4"}, 1, hint},
    };
    for (const auto& [arguments, status, error] : cases) {
        const Ended ended = run_kestan(arguments);
        EXPECT_EQ(ended.status, status) << arguments[0];
        EXPECT_EQ(ended.error, error);
        EXPECT_EQ(ended.output, "");
    }
}

TEST(CommandLine, PrintsVersionAndUsage) {
    const Ended version = run_kestan({"-s", "abc", "-t", "255", "-v", "-O", "nonsense"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output, "\nVersion: 2.10.1+d20260615\n");
    EXPECT_EQ(version.error, "");
    const Ended usage = run_kestan({"-v", "-h", "-t", "0"});
    EXPECT_EQ(usage.status, 0);
    EXPECT_EQ(usage.output.rfind("usage: " + kKestan +
                                     " [ -sclOIbtvh ] \n"
                                     "Lumora PSI/SI Muxing Application. \n"
                                     "Options:\n"
                                     "   [ -s ] [ --set ] (type=INTEGER, range=0...1, "
                                     "default=0)\n",
                                 0),
              0u);
    EXPECT_THAT(usage.output,
                HasSubstr("           Overrrides default FPGA PSI/SI IP/port.\n"
                          "           Example: 226.0.0.10/1234 ethInt\n"));
    EXPECT_THAT(usage.output, EndsWith("          Display this help and exit.\n"));
}

TEST(Output, ResolvesAndLogsTheDestination) {
    if (!has_own_network()) GTEST_SKIP() << "would send to a group of this network";
    const std::pair<std::string, std::string> cases[] = {
        {"226.0.0.10/1234 ethInt", "Out Address:226.0.0.10/1234 TTL 255 \n"},
        {"127.000.000.001/12345", "Out Address:127.0.0.1/1234 TTL 255 \n"},
    };
    for (const auto& [outip, line] : cases) {
        Program kestan({kKestan, "-c", "-l", "6", "-t", "255", "-O", outip});
        EXPECT_TRUE(kestan.wait_for_error(line, 5s)) << kestan.error();
        EXPECT_THAT(kestan.error(),
                    HasSubstr("INFORMATION kestan: Forced output address.\n"));
        EXPECT_THAT(kestan.error(), Not(HasSubstr("Interface Address")));
    }
    Program kestan({kKestan, "-c", "-l", "6", "-O", "127.0.0.1/99", "-I", "lo"});
    EXPECT_TRUE(kestan.wait_for_error("Out Address:127.0.0.1/99 TTL 1 lo\n", 5s));
    EXPECT_TRUE(kestan.wait_for_error("Interface Address: 127.0.0.1\n", 5s));
}

TEST(Output, EndsTheStartWhenTheInterfaceHasNoAddress) {
    const Ended ended = run_kestan({"-c", "-I", "nosuchinterface123"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, EndsWith("ERROR kestan: ioctl(SIOCGIFADDR) failed\n"));
}

TEST(Output, ReachesAGroupThroughTheInterfaceWithItsTtl) {
    if (!has_own_network()) GTEST_SKIP() << "would send to a group of this network";
    UdpCapture member(0, "226.0.0.10");
    Program kestan({kKestan, "-t", "7", "-I", "lo", "-O",
                    "226.0.0.10/" + std::to_string(member.port() % 10000)});
    UdpCapture group(member.port() % 10000, "226.0.0.10");
    const auto datagrams = group.receive_for(2s);
    ASSERT_FALSE(datagrams.empty()) << kestan.error();
    EXPECT_EQ(datagrams[0].ttl, 7);
}

// The default destination: the FPGA behind ethInt.100, here in a namespace of its own.
TEST(Output, GoesToTheFpgaByDefault) {
    if (!has_own_network()) GTEST_SKIP() << "no network namespaces here";
    const std::string ns = "kestan-fpga-" + std::to_string(getpid());
    const std::string lay =
        "ip netns add " + ns +
        " && ip link add ethInt.100 type veth peer name fpga netns " + ns +
        " && ip addr add 192.168.100.1/24 dev ethInt.100 && ip link set ethInt.100 up" +
        " && ip -n " + ns + " addr add 192.168.100.2/24 dev fpga && ip -n " + ns +
        " link set fpga up";
    const Ended laid = run({"sh", "-c", lay});
    const auto clean_up = [&](void*) {
        static_cast<void>(run({"ip", "netns", "del", ns}));
    };
    const std::unique_ptr<void, decltype(clean_up)> cleaner(this, clean_up);
    if (laid.status != 0) GTEST_SKIP() << "no network namespaces here: " << laid.error;

    const auto capture = UdpCapture::in_namespace(ns, 5501);
    const Program kestan({kKestan, "-s", "1"});
    EXPECT_FALSE(capture->receive_for(3s).empty());
}

// Counts the notifications of a start.
class NotifyHandler : public orvel::thrift::ci_module::cm_MuxNotifySrvIf {
public:
    explicit NotifyHandler(std::promise<void>& notified) : notified_(notified) {}
    void NotifyKestanStarted() override { notified_.set_value(); }

private:
    std::promise<void>& notified_;
};

TEST(StartUp, NotifiesAControlProcessThatAnswers) {
    using namespace apache::thrift;
    std::promise<void> notified;
    const auto socket = std::make_shared<transport::TServerSocket>("127.0.0.1", 9531);
    server::TSimpleServer server(
        std::make_shared<orvel::thrift::ci_module::cm_MuxNotifySrvProcessor>(
            std::make_shared<NotifyHandler>(notified)),
        socket, std::make_shared<transport::TFramedTransportFactory>(),
        std::make_shared<protocol::TBinaryProtocolFactory>());
    std::thread thread([&] { server.serve(); });
    std::this_thread::sleep_for(200ms);
    Daemon daemon({"-s", "1"});
    EXPECT_EQ(notified.get_future().wait_for(10s), std::future_status::ready);
    ControlClient(9511).ClearCAT();
    EXPECT_FALSE(daemon.play_for(1500ms).empty());
    EXPECT_THAT(daemon.program().error(), Not(HasSubstr("EXCEPTION")));
    server.stop();
    thread.join();
}

TEST(StartUp, PlaysWithoutAControlProcessAndWithOneThatNeverAnswers) {
    {
        Daemon daemon;
        EXPECT_FALSE(daemon.play_for(1500ms).empty());
        EXPECT_THAT(daemon.program().error(),
                    HasSubstr("ERROR kestan: MuxNotify client EXCEPTION: "));
    }
    apache::thrift::transport::TServerSocket silent("127.0.0.1", 9521);
    silent.listen();
    Daemon daemon;
    EXPECT_TRUE(daemon.program().wait_for_error(
        "MuxNotify client EXCEPTION: THRIFT_EAGAIN (timed out)", 3s))
        << daemon.program().error();
    EXPECT_FALSE(daemon.play_for(1500ms).empty());
}

TEST(StartUp, EndsWithStatus1WhenTheControlPortIsTaken) {
    apache::thrift::transport::TServerSocket taken(9501);
    taken.listen();
    Daemon daemon;
    EXPECT_EQ(daemon.program().wait(5s), 1);
    EXPECT_THAT(daemon.program().error(),
                HasSubstr(" ERROR MuxSrv: Mux server EXCEPTION: "));
}

TEST(Play, CarriesEveryFieldOfEveryTableToTheReceiver) {
    Daemon daemon({"-b", "20000", "-l", "6"});
    ControlClient client;
    RandomTables random(2026);
    for (int round = 0; round < 4; ++round) {
        PAT pat = random.pat(1 + random.below(250));
        CAT cat = random.cat(random.below(3000));
        SDT sdt = random.sdt(60, 10 + random.below(250));
        PMT pmt = random.pmt(0x8001, 1008);
        pat.version_number = 31;
        sdt.version_number = 32;
        pmt.version_number = 255;
        EXPECT_EQ(client.NewPAT(pat), 31);
        EXPECT_EQ(client.NewCAT(cat), cat.version_number);
        EXPECT_EQ(client.NewSDTActual(sdt), 0);
        EXPECT_EQ(client.NewPMT(pmt, kPmtPid), 0);
        sdt.version_number = pmt.version_number = 0;

        Wire wire;
        daemon.play_for(1500ms, wire);
        const Multiplex played = wire.tables({{0x8001, kPmtPid}});
        EXPECT_EQ(played.pat, pat);
        EXPECT_EQ(played.cat, cat);
        EXPECT_EQ(played.sdt, sdt);
        ASSERT_EQ(played.pmts.size(), 1u);
        EXPECT_EQ(played.pmts[0].pmt, pmt);
    }
    PAT hostile = random.pat(3);
    hostile.programs[1].pid = 0;
    EXPECT_EQ(client.NewPAT(hostile), -1);
    EXPECT_EQ(client.NewPMT(random.pmt(1, 10), 0x2000), -1);
    EXPECT_TRUE(
        daemon.program().wait_for_error("New PMT sid=8001 pid=1ffe version=0\n", 1s));
}

TEST(Play, KeepsCountersAcrossVersionsAndWithdrawsWhatIsCleared) {
    Daemon daemon;
    ControlClient client;
    RandomTables random(5);
    client.NewPAT(random.pat(2));
    client.NewCAT(random.cat(300));
    client.NewSDTActual(random.sdt(9, 60));
    client.NewPMT(random.pmt(1, 100), 0x20);
    client.NewPMT(random.pmt(2, 100), 0x20);
    Wire wire;  // fails the test at every break
    daemon.play_for(1s, wire);
    EXPECT_EQ(wire.pids().at(0x20).sections.size(), 2u);
    for (const std::uint16_t pid : {std::uint16_t{0x01}, std::uint16_t{0x11}}) {
        wire.allow_break(pid);
    }
    client.NewPAT(random.pat(3));
    client.NewCAT(random.cat(500));
    client.NewSDTActual(random.sdt(12, 60));
    client.NewPMT(random.pmt(1, 100), 0x20);
    for (const auto& datagram : daemon.capture().receive_for(1s))
        wire.push(datagram.bytes);

    client.ClearCAT();
    client.StopPMT(1, 0x1234);
    client.StopPMT(2, 0x20);
    std::this_thread::sleep_for(100ms);
    Wire without;
    daemon.play_for(1s, without);
    EXPECT_EQ(without.pids().size(), 3u);  // PAT, SDT, TDT
    EXPECT_EQ(without.pids().count(0x01), 0u);

    client.ClearAllTables();
    std::this_thread::sleep_for(100ms);
    Wire cleared;
    daemon.play_for(1500ms, cleared);
    EXPECT_EQ(cleared.pids().size(), 1u);
    EXPECT_EQ(cleared.pids().count(0x14), 1u);

    const PMT back = random.pmt(1, 100);
    client.NewPMT(back, 0x20);
    Wire again;
    daemon.play_for(1s, again);
    EXPECT_EQ(again.tables({{1, 0x20}}).pmts.at(0).pmt, back);
}

// Real time, so with room for a busy machine: the exact intervals are the simulated
// clock's.
TEST(Play, RepeatsEachTableAtItsPeriod) {
    Daemon daemon;
    ControlClient client;
    RandomTables random(5);
    client.NewPAT(random.pat(2));
    client.NewSDTActual(random.sdt(2, 20));
    std::map<int, std::vector<std::int64_t>> times;
    for (const auto& datagram : daemon.play_for(5s)) {
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            times[datagram.bytes[at + 2]].push_back(datagram.time_ns);
        }
    }
    for (const auto& [pid, period_ms] :
         {std::pair{0x00, 200}, {0x11, 500}, {0x14, 1000}}) {
        const auto& seen = times[pid];
        ASSERT_GE(seen.size(), 4u) << pid;
        const std::int64_t mean = in_ms(seen.back() - seen.front()) /
                                  static_cast<std::int64_t>(seen.size() - 1);
        EXPECT_NEAR(static_cast<double>(mean), period_ms, period_ms / 20.0) << pid;
    }
}

// A message of a few bytes that claims 2^31 - 1 programs, and a frame of a negative
// length.
TEST(Control, OutlivesLengthsThatLie) {
    using namespace apache::thrift;
    const auto message = std::make_shared<transport::TMemoryBuffer>();
    protocol::TBinaryProtocol protocol(message);
    protocol.writeMessageBegin("NewPAT", protocol::T_CALL, 1);
    protocol.writeFieldBegin("pat", protocol::T_STRUCT, 1);
    protocol.writeFieldBegin("programs", protocol::T_LIST, 4);
    protocol.writeListBegin(protocol::T_STRUCT, 0x7FFFFFFF);
    const std::string claim = message->getBufferAsString();

    Daemon daemon;
    ControlClient(9501).ClearCAT();  // it listens
    for (const std::string& frame :
         {std::string(3, '\0') + static_cast<char>(claim.size()) + claim,
          std::string("\xFF\xFF\xFF\xFF", 4)}) {
        transport::TSocket socket("127.0.0.1", 9501);
        socket.open();
        socket.write(reinterpret_cast<const std::uint8_t*>(frame.data()),
                     static_cast<std::uint32_t>(frame.size()));
        socket.close();
        RandomTables random(1);
        const PAT pat = random.pat(1);
        EXPECT_EQ(ControlClient(9501).NewPAT(pat), pat.version_number);
    }
    // Thrift's own words come as lines of the log.
    EXPECT_TRUE(daemon.program().wait_for_error(" WARNING MuxSrv: ", 1s));
    EXPECT_THAT(daemon.program().error(), Not(HasSubstr("Thrift:")));
}

}  // namespace
