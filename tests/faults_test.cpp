// The daemon while things around it fail, and what its receivers notice of that.

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>

#include "tests/support/own_network.h"
#include "tests/support/recording.h"

using namespace std::chrono_literals;

namespace {

using Packets = std::vector<Recording::Packet>;

// With room for a busy machine.
constexpr double kLateS = 0.4;

double now_s() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

double latest_s(const Packets& packets, double from_s = 0) {
    double late_s = 0;
    for (const auto& packet : packets) {
        if (packet.time_s >= from_s) late_s = std::max(late_s, packet.late_s);
    }
    return late_s;
}

std::size_t count_between(const Packets& packets, double from_s, double to_s) {
    const auto is_between = [=](const auto& packet) {
        return from_s <= packet.time_s && packet.time_s < to_s;
    };
    return static_cast<std::size_t>(
        std::count_if(packets.begin(), packets.end(), is_between));
}

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "kestan-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = name;
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] std::string file(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

void shell(const std::string& command) {
    const Ended ended = run({"sh", "-c", command});
    EXPECT_EQ(ended.status, 0) << command << ": " << ended.error;
}

// The stream goes on as soon as the interface is back, in its old cadence and without
// what was due in between.
TEST(Faults, InterfaceGoesAndComesBack) {
    if (!has_own_network()) GTEST_SKIP() << "no network namespace of its own";
    const std::string ns = "kestan-peer-" + std::to_string(getpid());
    const std::string lay =
        "ip link add out0 type veth peer name in0 netns " + ns +
        " && ip addr add 10.0.0.1/24 dev out0 && ip link set out0 up && ip -n " + ns +
        " addr add 10.0.0.2/24 dev in0 && ip -n " + ns + " link set in0 up";
    const Ended laid = run({"sh", "-c", "ip netns add " + ns + " && " + lay});
    const auto clean_up = [&](void*) {
        static_cast<void>(run({"ip", "netns", "del", ns}));
    };
    const std::unique_ptr<void, decltype(clean_up)> cleaner(this, clean_up);
    if (laid.status != 0) GTEST_SKIP() << "no network namespaces here: " << laid.error;

    const auto capture = UdpCapture::in_namespace(ns, 5432);
    const Program kestan({KESTAN_BIN "/kestan", "-I", "out0", "-O", "10.0.0.2/5432"});
    Recording::push_pat();
    const std::pair<std::string, std::string> faults[] = {
        {"ip link set out0 down", "ip link set out0 up"}, {"ip link del out0", lay}};
    for (const auto& [take_away, bring_back] : faults) {
        Recording recording(*capture);
        recording.check_wire = false;  // the counters go on without the receiver
        shell(take_away);
        const double away_s = now_s();
        std::this_thread::sleep_for(1s);
        const double back_from_s = now_s();
        shell(bring_back);
        const double back_s = now_s();
        std::this_thread::sleep_for(3s);
        const Packets packets = recording.stop();
        EXPECT_EQ(count_between(packets, away_s, back_from_s), 0u);
        const auto first =
            std::find_if(packets.begin(), packets.end(),
                         [&](auto& packet) { return packet.time_s >= back_from_s; });
        ASSERT_NE(first, packets.end());
        std::printf("%s: back after %.1f ms\n", take_away.c_str(),
                    (first->time_s - back_s) * 1000);
        EXPECT_LT(first->time_s - back_s, 1 + kLateS);  // a link may take a second
        // What the kernel held back until it had found the peer has come by then.
        const double from_s = first->time_s + 0.5;
        const auto in_a_second = count_between(packets, from_s, from_s + 1);
        EXPECT_NEAR(static_cast<double>(in_a_second), 150, 60);
    }
}

unsigned long port_unreachable_messages() {
    std::ifstream statistics("/proc/net/snmp");
    unsigned long messages = 0;
    for (std::string line; std::getline(statistics, line);) {
        if (line.rfind("IcmpMsg: ", 0) != 0) continue;
        std::istringstream names(line);
        std::getline(statistics, line);
        std::istringstream values(line);
        for (std::string name, value; names >> name && values >> value;) {
            if (name == "OutType3") messages = std::stoul(value);
        }
    }
    return messages;
}

// The host answers each datagram with "port unreachable" until somebody listens.
TEST(Faults, DestinationRefuses) {
    if (!has_own_network()) GTEST_SKIP() << "no network namespace of its own";
    const Program kestan({KESTAN_BIN "/kestan", "-O", "127.0.0.1/5433"});
    const unsigned long before = port_unreachable_messages();
    Recording::push_pat();
    std::this_thread::sleep_for(1s);
    EXPECT_GT(port_unreachable_messages(), before);
    UdpCapture capture(5433);
    const auto datagrams = capture.receive_for(1s);
    EXPECT_NEAR(static_cast<double>(datagrams.size()), 150, 60);
}

// The UTC of a TDT, by the formulae of ETSI EN 300 468, annex C, from its first day on.
std::int64_t utc_of(const std::string& tdt) {
    const auto byte = [&](std::size_t at) {
        return static_cast<std::int64_t>(static_cast<unsigned char>(tdt[at]));
    };
    const auto two_digits = [&](std::size_t at) {
        return byte(at) / 16 * 10 + byte(at) % 16;
    };
    const std::int64_t days = byte(8) * 256 + byte(9) - 40587;
    return ((days * 24 + two_digits(10)) * 60 + two_digits(11)) * 60 + two_digits(12);
}

// The TDT shows the new time at its next repetition, and nothing else happens.
TEST(Faults, CivilClockIsSet) {
    const TemporaryDirectory directory;
    const std::string offset_file = directory.file("offset");
    Daemon daemon({}, "127.0.0.1", {KESTAN_ON_SETTABLE_CLOCK},
                  {"KESTAN_TEST_CLOCK=" + offset_file});
    Recording::push_pat();
    Recording recording(daemon);
    std::vector<std::pair<double, std::int64_t>> sets;
    for (const std::int64_t offset_s : {0, 5 * 3600, -7 * 3600, 26 * 3600}) {
        // In one step: the daemon may be reading it.
        std::ofstream(offset_file + ".new") << offset_s;
        std::filesystem::rename(offset_file + ".new", offset_file);
        sets.emplace_back(now_s(), offset_s);
        std::this_thread::sleep_for(1700ms);
    }
    EXPECT_LT(latest_s(recording.stop()), kLateS);
    std::vector<std::size_t> shown(sets.size());
    for (const auto& datagram : recording.datagrams()) {
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            if (datagram.bytes[at + 2] != 0x14) continue;
            const double time_s = 1e-9 * static_cast<double>(datagram.time_ns);
            std::size_t set = sets.size() - 1;
            while (set > 0 && sets[set].first > time_s) --set;
            EXPECT_NEAR(static_cast<double>(utc_of(datagram.bytes.substr(at))),
                        time_s + static_cast<double>(sets[set].second), 1.5);
            ++shown[set];
        }
    }
    for (const std::size_t count : shown) EXPECT_GE(count, 1u);
}

// What was due in the meantime follows at once and complete; then the cadence is the old
// one.
TEST(Faults, ProcessStandsStill) {
    Daemon daemon;
    Recording::push_pat();
    Recording recording(daemon);
    daemon.program().signal(SIGSTOP);
    std::this_thread::sleep_for(3s);
    const double on_s = now_s();
    daemon.program().signal(SIGCONT);
    std::this_thread::sleep_for(1500ms);
    const Packets packets = recording.stop();
    EXPECT_NEAR(latest_s(packets), 3, kLateS);
    EXPECT_LT(latest_s(packets, on_s + kLateS), kLateS);
    const auto on_time = std::find_if(packets.begin(), packets.end(), [&](auto& packet) {
        return packet.time_s >= on_s && packet.late_s < 2e-9 * Recording::kCadenceNs;
    });
    ASSERT_NE(on_time, packets.end());
    std::printf("%zu packets within %.1f ms after 3 s\n",
                count_between(packets, on_s, on_time->time_s),
                (on_time->time_s - on_s) * 1000);
}

// Before and after the daemon has the whole call.
TEST(Faults, ControlProcessDiesInTheMiddleOfACall) {
    Daemon daemon;
    Recording::push_pat();
    Recording recording(daemon);
    const std::string call =
        R"(\x80\x01\x00\x01\x00\x00\x00\x08ClearCAT\x00\x00\x00\x01)";
    for (const std::string& sent : {call, call + R"(\x00)"}) {
        Program control({"bash", "-c",
                         R"(exec 3<>/dev/tcp/127.0.0.1/9501; printf '\x00\x00\x00\x15)" +
                             sent + "' >&3; echo sent >&2; kill -STOP $$"});
        ASSERT_TRUE(control.wait_for_error("sent", 5s)) << control.error();
        control.signal(SIGKILL);
        EXPECT_EQ(control.wait(5s), 128 + SIGKILL);
        ControlClient().ClearCAT();
    }
    EXPECT_LT(latest_s(recording.stop()), kLateS);
}

// Plays and logs while the system's log is `directory`/log; `meanwhile` runs at the same
// time as calls that log a line each.
void play_with_log(const TemporaryDirectory& directory,
                   const std::function<void(std::future<void>& calls)>& meanwhile) {
    Daemon daemon({"-l", "6"}, "127.0.0.1",
                  {"unshare", "-m", "sh", "-c", "mount --bind \"$0\" /dev && exec \"$@\"",
                   directory.file("."), KESTAN_BIN "/kestan"});
    Recording::push_pat();
    Recording recording(daemon);
    auto calls = std::async(std::launch::async, [] {
        ControlClient client;
        for (int i = 0; i < 1000; ++i) client.ClearCAT();
    });
    meanwhile(calls);
    calls.get();
    const Packets packets = recording.stop();
    EXPECT_GT(packets.size(), 0u);
    EXPECT_LT(latest_s(packets), kLateS);
}

// Neither keeps the stream waiting. A control call, which logs, waits for a log daemon
// that does not read, as syslog(3) does.
TEST(Faults, SystemLogIsAwayOrNeverRead) {
    if (run({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mount namespaces";
    const TemporaryDirectory directory;
    play_with_log(directory, [](std::future<void>&) {});

    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory.file("log");
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    std::string lines;
    play_with_log(directory, [&](std::future<void>& calls) {
        calls.wait_for(1s);
        while (calls.wait_for(0s) != std::future_status::ready) {
            std::array<char, 256> line{};
            if (recv(log, line.data(), line.size() - 1, MSG_DONTWAIT) > 0) {
                lines += line.data();
            }
        }
    });
    EXPECT_NE(lines.find("<30>"), std::string::npos);  // LOG_DAEMON, LOG_INFO
    EXPECT_NE(lines.find("Forced output address."), std::string::npos);
    close(log);
}

}  // namespace
