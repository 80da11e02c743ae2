// The daemon as a whole: what its user sees of it on the command line, on the wire and in
// the log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <thrift/transport/TServerSocket.h>

#include "tests/support/control_client.h"
#include "tests/support/daemon.h"
#include "tests/support/own_network.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;
using namespace apache::thrift;
using namespace std::chrono_literals;

namespace {

using testing::EndsWith;
using testing::HasSubstr;

const std::string kKestan = KESTAN_BIN "/kestan";
constexpr std::uint16_t kPmtPid = 0x1FFE;

Ended run_kestan(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), kKestan);
    return run(std::move(arguments));
}

TEST(CommandLine, SaysWhatIsWrongInItsOwnWords) {
    const std::string hint = "Try `" + kKestan + " --help' for more information.\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"-s", "2"}, "parameter range error: set must be <= 1\n"},
        {{"-s", "-1"}, "parameter range error: set must be >= 0\n"},
        {{"-s", "4294967296"}, "parameter range error: set must be <= 1\n"},
        {{"-l", "2"}, "parameter range error: level must be >= 3\n"},
        {{"--level", "8"}, "parameter range error: level must be <= 7\n"},
        {{"-b", "300", "--bitrate=x"}, "parameter range error: bitrate must be >= 100\n"},
        {{"-b", "99"}, "parameter range error: bitrate must be >= 100\n"},
        {{"-b", "100001"}, "parameter range error: bitrate must be <= 100000\n"},
        {{"-t", "0", "-h"}, "parameter range error: ttl must be >= 1\n"},
        {{"-v", "-t", "256"}, "parameter range error: ttl must be <= 255\n"},
        {{"-x"}, kKestan + ": invalid option -- 'x'\n" + hint},
        {{"--ttl"}, kKestan + ": option '--ttl' requires an argument\n" + hint},
        {{"-O", "1.2.3/80"}, hint},
        {{"-O", "1.2.3.4"}, hint},
    };
    for (const auto& [arguments, error] : cases) {
        const Ended ended = run_kestan(arguments);
        EXPECT_EQ(ended.status, 1) << error;
        EXPECT_EQ(ended.error, error);
        EXPECT_EQ(ended.output, "");
    }
    EXPECT_THAT(run_kestan({"-c", "-O", "1.2.3/80"}).error,
                EndsWith(" ERROR kestan: Unable to parse output address.\n" + hint));
    EXPECT_THAT(run_kestan({"-c", "-I", "nosuchinterface123"}).error,
                EndsWith("ERROR kestan: ioctl(SIOCGIFADDR) failed\n"));
}

TEST(CommandLine, PrintsVersionAndUsage) {
    const Ended version = run_kestan({"-s", "abc", "-t", "255", "-v", "-O", "nonsense"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output, "\nVersion: 2.10.1+d20260615\n");
    EXPECT_EQ(version.error, "");
    const Ended usage = run_kestan({"-v", "-h", "-t", "0"});
    EXPECT_EQ(usage.status, 0);
    std::ifstream file(KESTAN_USAGE);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(usage.output, "usage: " + kKestan + text);
}

TEST(Output, ResolvesAndLogsTheDestinationAndReachesAGroupWithItsTtl) {
    if (!has_own_network()) GTEST_SKIP() << "would send to a group of this network";
    const Program by_route({kKestan, "-s1", "-c", "-l6", "-O", "127.000.000.001/12345"});
    EXPECT_TRUE(by_route.wait_for_error("Out Address:127.0.0.1/1234 TTL 1 \n", 5s));
    const UdpCapture member(5432, "226.0.0.10");
    const Program kestan(
        {kKestan, "-c", "-l6", "-t7", "-Ilo", "-O", "226.0.0.10/5432 ethInt"});
    for (const char* line :
         {"INFORMATION kestan: Forced output address.\n",
          "Out Address:226.0.0.10/5432 TTL 7 lo\n", "Interface Address: 127.0.0.1\n"}) {
        EXPECT_TRUE(kestan.wait_for_error(line, 5s)) << line << kestan.error();
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(fd, IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
    const sockaddr_in any{AF_INET, htons(5432), {}, {}};
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    alignas(cmsghdr) std::array<char, 64> control{};
    msghdr message{nullptr, 0, nullptr, 0, control.data(), control.size(), 0};
    ASSERT_EQ(recvmsg(fd, &message, 0), 0);  // a TDT comes every second
    ASSERT_NE(CMSG_FIRSTHDR(&message), nullptr);
    EXPECT_EQ(*CMSG_DATA(CMSG_FIRSTHDR(&message)), 7);
    close(fd);
}

// The default destination: the FPGA behind ethInt.100, here in a namespace of its own.
TEST(Output, GoesToTheFpgaByDefault) {
    if (!has_own_network()) GTEST_SKIP() << "no network namespaces here";
    const std::string ns = "kestan-fpga-" + std::to_string(getpid());
    const Ended laid =
        run({"sh", "-ec",
             "ip netns add $0; ip link add ethInt.100 type veth peer name fpga netns $0; "
             "ip addr add 192.168.100.1/24 dev ethInt.100; ip link set ethInt.100 up; "
             "ip -n $0 addr add 192.168.100.2/24 dev fpga; ip -n $0 link set fpga up",
             ns});
    const auto clean_up = [&](void*) {
        static_cast<void>(run({"ip", "netns", "del", ns}));
    };
    const std::unique_ptr<void, decltype(clean_up)> cleaner(this, clean_up);
    if (laid.status != 0) GTEST_SKIP() << "no network namespaces here: " << laid.error;
    const auto capture = UdpCapture::in_namespace(ns, 5501);
    const Program kestan({kKestan, "-s", "1"});
    EXPECT_FALSE(capture->receive_for(3s).empty());
}

TEST(StartUp, PlaysWithoutAControlProcessAndWithOneThatNeverAnswers) {
    transport::TServerSocket silent("127.0.0.1", 9521);
    for (const char* what :
         {"MuxNotify client EXCEPTION: ", "THRIFT_EAGAIN (timed out)"}) {
        Daemon daemon;
        EXPECT_TRUE(daemon.program().wait_for_error(what, 3s)) << what;
        EXPECT_FALSE(daemon.play_for(1500ms).empty());
        if (!silent.isOpen()) silent.listen();
    }
}

TEST(StartUp, PlaysWithoutAWatchdog) {
    Daemon daemon({}, "127.0.0.1", {kKestan}, {"WATCHDOG_USEC=soon"});
    EXPECT_TRUE(daemon.program().wait_for_error(
        " ERROR kestan: Couldn't register task for WD\n", 3s));
    EXPECT_FALSE(daemon.play_for(1500ms).empty());
}

TEST(StartUp, EndsWithStatus1WhenTheControlPortIsTaken) {
    transport::TServerSocket taken(9501);
    taken.listen();
    Daemon daemon;
    EXPECT_EQ(daemon.program().wait(5s), 1);
    EXPECT_THAT(daemon.program().error(), HasSubstr(": Mux server EXCEPTION: "));
}

TEST(Play, CarriesEveryFieldOfEveryTableUntilItIsReplacedOrCleared) {
    Daemon daemon({"-b", "20000", "-l", "6"});
    ControlClient client;
    RandomTables random(2026);
    Wire wire;  // fails the test at every break
    const auto play = [&] {
        for (const auto duration : {100ms, 1500ms}) {
            wire.forget();  // what was under way
            for (const auto& datagram : daemon.capture().receive_for(duration))
                wire.push(datagram.bytes);
        }
        return wire.tables({{0x8001, kPmtPid}});
    };
    PMT pmt;
    for (int round = 0; round < 4; ++round) {
        for (const int pid : {0x0000, 0x0001, 0x0011, 0x1FFE})
            wire.allow_break(static_cast<std::uint16_t>(pid));
        PAT pat = random.pat(1 + random.below(250));
        const CAT cat = random.cat(random.below(3000));
        SDT sdt = random.sdt(60, 10 + random.below(250));
        pmt = random.pmt(0x8001, 1008);
        pat.version_number = 31;
        sdt.version_number = 32;
        pmt.version_number = 255;
        EXPECT_EQ(client.NewPAT(pat), 31);
        EXPECT_EQ(client.NewCAT(cat), cat.version_number);
        EXPECT_EQ(client.NewSDTActual(sdt), 0);
        EXPECT_EQ(client.NewPMT(pmt, kPmtPid), 0);
        sdt.version_number = pmt.version_number = 0;

        const Multiplex played = play();
        EXPECT_EQ(played.pat, pat);
        EXPECT_EQ(played.cat, cat);
        EXPECT_EQ(played.sdt, sdt);
        EXPECT_EQ(played.pmts.at(0).pmt, pmt);
    }
    EXPECT_TRUE(
        daemon.program().wait_for_error("New PMT sid=8001 pid=1ffe version=0\n", 1s));
    EXPECT_EQ(client.NewPMT(pmt, 0x2000), -1);
    const PMT second = random.pmt(2, 100);  // of one packet
    EXPECT_EQ(client.NewPMT(second, kPmtPid), second.version_number);
    EXPECT_EQ(client.NewPMT(second, 0x30), second.version_number);  // stays where it is
    play();
    EXPECT_EQ(wire.pids().count(0x30), 0u);
    EXPECT_EQ(wire.pids().at(kPmtPid).sections.size(), 2u);
    // In 1.5 s each whole every 200 ms, six packets and one.
    EXPECT_NEAR(static_cast<double>(wire.pids().at(kPmtPid).packets), 7.5 * 7, 7);
    client.StopPMT(2, kPmtPid);
    client.ClearCAT();
    client.StopPMT(static_cast<std::int16_t>(0x8001), 0x1234);  // on another PID
    const Multiplex without = play();
    EXPECT_TRUE(without.pat && !without.cat && without.sdt && without.pmts.empty());
    client.ClearAllTables();
    play();
    EXPECT_EQ(wire.pids().size(), 1u);
    EXPECT_EQ(wire.pids().count(0x14), 1u);
    wire.expect_new_stream(kPmtPid);
    client.NewPMT(pmt, kPmtPid);
    EXPECT_EQ(play().pmts.at(0).pmt, pmt);
}

// A message of a few bytes that claims 2^31 - 1 programs.
TEST(Control, OutlivesALengthThatLies) {
    const Daemon daemon;
    ControlClient client;
    const auto protocol = client.getOutputProtocol();
    protocol->writeMessageBegin("NewPAT", protocol::T_CALL, 1);
    protocol->writeFieldBegin("pat", protocol::T_STRUCT, 1);
    protocol->writeFieldBegin("programs", protocol::T_LIST, 4);
    protocol->writeListBegin(protocol::T_STRUCT, 0x7FFFFFFF);
    protocol->getTransport()->flush();
    EXPECT_THROW(client.recv_NewPAT(), TException);
    const PAT pat = RandomTables(1).pat(1);
    EXPECT_EQ(ControlClient().NewPAT(pat), pat.version_number);
    // Thrift's own words come as lines of the log.
    EXPECT_TRUE(daemon.program().wait_for_error(" WARNING MuxSrv: ", 1s));
    EXPECT_EQ(daemon.program().error().find("Thrift:"), std::string::npos);
}

}  // namespace
