// The daemon while things around it fail or clients do what no control process does, and
// what its receivers notice of that. Whatever it is, the daemon keeps its time and its
// memory, and serves the next client.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/support/own_network.h"
#include "tests/support/recording.h"

using namespace std::chrono_literals;

namespace {

// With room for a busy machine. What blocks the pacing loop does so for a second and more
// in these tests.
constexpr double kLateS = 0.4;
constexpr long kGrowthKb = 1024;
constexpr long kPeakKb = 64 * 1024;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

double now_s() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

void shell(const std::string& command) {
    const Ended ended = run({"sh", "-c", command});
    EXPECT_EQ(ended.status, 0) << command << ": " << ended.error;
}

// A connection to the control port, without Thrift.
class RawClient {
public:
    RawClient() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int little = 4096;
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
        sockaddr_in to{AF_INET, htons(9501), {htonl(INADDR_LOOPBACK)}, {}};
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    ~RawClient() { close(fd_); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // How many of the bytes the connection takes; 0 when it takes none for a while.
    std::size_t write(const std::string& bytes) const {
        pollfd room{fd_, POLLOUT, 0};
        if (poll(&room, 1, 300) == 0) return 0;
        const auto sent =
            send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return sent < 0 ? 0 : static_cast<std::size_t>(sent);
    }

    [[nodiscard]] bool is_answered_within(std::chrono::milliseconds time) const {
        pollfd answer{fd_, POLLIN, 0};
        return poll(&answer, 1, static_cast<int>(time.count())) > 0;
    }

    // The connection ends with a reset.
    void break_off() const {
        const linger at_once{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }

private:
    int fd_;
};

std::string frame_of(std::uint32_t length, const std::string& content) {
    const std::uint32_t header = htonl(length);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + content;
}

const std::string kClearCat(
    "\x80\x01\x00\x01\x00\x00\x00\x08"
    "ClearCAT\x00\x00\x00\x01\x00",
    21);

void lie_about_lengths() {
    // A name of 1.6 GB in a message of the old form, which begins with its length.
    const std::string huge_name("\x61\x72\x41\x6C", 4);
    for (const std::string& bytes :
         {frame_of(0, std::string(1000, '\0')), frame_of(0x7FFFFFFF, kClearCat),
          frame_of(0x80000000, kClearCat), frame_of(0xFFFFFFFF, kClearCat),
          frame_of(16384000, kClearCat), frame_of(22, kClearCat), frame_of(20, kClearCat),
          frame_of(25, huge_name + kClearCat), std::string("\x00\x00", 2)}) {
        const RawClient client;
        EXPECT_EQ(client.write(bytes), bytes.size());
        static_cast<void>(client.is_answered_within(100ms));
    }
}

// It keeps the others waiting, and no longer than it is there.
void stop_in_the_middle_of_a_frame() {
    auto first = std::make_unique<RawClient>();
    first->write(frame_of(21, kClearCat.substr(0, 10)));
    const RawClient second;
    second.write(frame_of(21, kClearCat));
    EXPECT_FALSE(second.is_answered_within(1s));
    first.reset();
    EXPECT_TRUE(second.is_answered_within(2s));
}

void never_read_replies() {
    const RawClient client;
    std::string calls;
    for (int i = 0; i < 1000; ++i) calls += frame_of(21, kClearCat);
    std::size_t offset = 0;
    while (const std::size_t written = client.write(calls.substr(offset))) {
        offset = (offset + written) % calls.size();
    }
    std::this_thread::sleep_for(1s);
}

void connect_and_close_ten_thousand_times() {
    for (int i = 0; i < 10000; ++i) {
        const RawClient client;
        if (i % 2 == 0) client.break_off();
    }
}

// Before and after the daemon has the whole call.
void die_in_the_middle_of_a_call() {
    for (const std::size_t length : {20, 21}) {
        std::string bytes;
        for (const char byte : frame_of(21, kClearCat).substr(0, 4 + length)) {
            std::array<char, 8> text{};
            std::snprintf(text.data(), text.size(), "\\x%02x", byte & 0xFF);
            bytes += text.data();
        }
        Program control({"bash", "-c",
                         "exec 3<>/dev/tcp/127.0.0.1/9501; printf '" + bytes +
                             "' >&3; echo sent >&2; kill -STOP $$"});
        ASSERT_TRUE(control.wait_for_error("sent", 5s)) << control.error();
        control.signal(SIGKILL);
        EXPECT_EQ(control.wait(5s), 128 + SIGKILL);
    }
}

void expect_service() {
    const RawClient next;
    next.write(frame_of(21, kClearCat));
    EXPECT_TRUE(next.is_answered_within(2s));
}

long memory_kb(const Daemon& daemon, const std::string& what) {
    std::ifstream status("/proc/" + std::to_string(daemon.program().pid()) + "/status");
    long kb = -1;
    for (std::string name; status >> name && !(name == what && status >> kb);) {
    }
    EXPECT_GT(kb, 0) << what;
    return kb;
}

// Each is done twice, since what the daemon allocates for the first time it keeps.
TEST(Faults, HostileClients) {
    const std::pair<const char*, void (*)()> attacks[] = {
        {"wrong lengths", lie_about_lengths},
        {"half a frame", stop_in_the_middle_of_a_frame},
        {"no reading", never_read_replies},
        {"10,000 connects", connect_and_close_ten_thousand_times},
        {"death in a call", die_in_the_middle_of_a_call}};
    for (const auto& [name, attack] : attacks) {
        SCOPED_TRACE(name);
        Daemon daemon;
        push_pat();
        attack();
        expect_service();
        const long before_kb = memory_kb(daemon, "VmRSS:");
        const Recording recording = record_while(daemon.capture(), [act = attack] {
            act();
            expect_service();
        });
        const long growth_kb = memory_kb(daemon, "VmRSS:") - before_kb;
        std::printf("%s: late by %.1f ms at most; %ld KB more\n", name,
                    recording.latest_s() * 1000, growth_kb);
        EXPECT_GT(recording.packets.size(), 20u);
        EXPECT_LT(recording.latest_s(), kLateS);
        if (kSanitized) continue;  // keeps what has been freed
        EXPECT_LT(growth_kb, kGrowthKb);
        EXPECT_LT(memory_kb(daemon, "VmHWM:"), kPeakKb);
    }
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
    push_pat();
    const std::pair<std::string, std::string> faults[] = {
        {"ip link set out0 down", "ip link set out0 up"}, {"ip link del out0", lay}};
    for (const auto& [take_away, bring_back] : faults) {
        double away_s = 0, back_from_s = 0, back_s = 0;
        const Recording recording =
            record_while(*capture, [&, away = take_away, back = bring_back] {
                shell(away);
                away_s = now_s();
                std::this_thread::sleep_for(1s);
                back_from_s = now_s();
                shell(back);
                back_s = now_s();
                std::this_thread::sleep_for(3500ms);
            });
        double first_s = 0;
        std::vector<Recording::Packet> settled;
        for (const auto& packet : recording.packets) {
            EXPECT_FALSE(away_s <= packet.time_s && packet.time_s < back_from_s);
            if (packet.time_s < back_from_s) continue;
            if (first_s == 0) first_s = packet.time_s;
            // What the kernel held back until it had found the peer has come by then.
            if (packet.time_s >= first_s + 0.5) settled.push_back(packet);
        }
        ASSERT_GT(settled.size(), 50u) << take_away;
        EXPECT_LT(first_s - back_s, 1 + kLateS);  // a link may take a second
        EXPECT_NEAR(settled.back().late_s, settled.front().late_s, kLateS);
    }
}

// The host answers each datagram with "port unreachable" until somebody listens.
TEST(Faults, DestinationRefuses) {
    if (!has_own_network()) GTEST_SKIP() << "no network namespace of its own";
    const Program kestan({KESTAN_BIN "/kestan", "-O", "127.0.0.1/5433"});
    push_pat();
    std::this_thread::sleep_for(1s);
    shell("grep -q '^IcmpMsg: .*OutType3' /proc/net/snmp");
    UdpCapture capture(5433);
    const Recording recording =
        record_while(capture, [] { std::this_thread::sleep_for(1s); });
    EXPECT_GT(recording.packets.size(), 50u);
    EXPECT_LT(recording.latest_s(), kLateS);
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

// The UTC of a TDT, by the formulae of ETSI EN 300 468, annex C, from its first day on.
double utc_of(const std::string& tdt) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(tdt[at]); };
    const auto two_digits = [&](std::size_t at) {
        return byte(at) / 16 * 10 + byte(at) % 16;
    };
    const double days = byte(8) * 256 + byte(9) - 40587;
    return ((days * 24 + two_digits(10)) * 60 + two_digits(11)) * 60 + two_digits(12);
}

// A board that wakes up decades ago sends no TDT until its clock is set. From then on the
// TDT shows the new time at its next repetition, and nothing else happens.
TEST(Faults, CivilClockIsSet) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("offset");
    constexpr std::int64_t long_ago_s = -50LL * 365 * 86400;
    std::ofstream(file) << long_ago_s;
    Daemon daemon({}, "127.0.0.1", {KESTAN_ON_SETTABLE_CLOCK},
                  {"KESTAN_TEST_CLOCK=" + file});
    push_pat();
    bool was_set = false;
    for (const std::int64_t offset_s :
         {long_ago_s, std::int64_t{0}, std::int64_t{5 * 3600}, std::int64_t{-7 * 3600}}) {
        was_set = was_set || offset_s == 0;
        // In one step: the daemon may be reading it.
        std::ofstream(file + ".new") << offset_s;
        std::filesystem::rename(file + ".new", file);
        const Recording recording =
            record_while(daemon.capture(), [] { std::this_thread::sleep_for(1600ms); });
        EXPECT_LT(recording.latest_s(), kLateS);
        int shown = 0;
        for (const auto& datagram : recording.datagrams) {
            for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
                if (datagram.bytes[at + 2] != 0x14) continue;
                EXPECT_NEAR(utc_of(datagram.bytes.substr(at)),
                            1e-9 * static_cast<double>(datagram.time_ns +
                                                       offset_s * kNsPerSecond),
                            1.5);
                ++shown;
            }
        }
        EXPECT_EQ(shown > 0, was_set);
    }
}

// What was due in the meantime follows at once and complete; then the cadence is the old
// one.
TEST(Faults, ProcessStandsStill) {
    Daemon daemon;
    push_pat();
    double on_s = 0;
    const Recording recording = record_while(daemon.capture(), [&] {
        daemon.program().signal(SIGSTOP);
        std::this_thread::sleep_for(3s);
        on_s = now_s();
        daemon.program().signal(SIGCONT);
        std::this_thread::sleep_for(1500ms);
    });
    Wire wire;
    for (const auto& datagram : recording.datagrams) wire.push(datagram.bytes);
    EXPECT_NEAR(recording.latest_s(), 3, kLateS);
    EXPECT_LT(recording.latest_s(on_s + kLateS), kLateS);
}

// Neither keeps the stream waiting. A control call, which logs, waits for a log daemon
// that does not read, as syslog(3) does.
TEST(Faults, SystemLogIsAwayOrNeverRead) {
    if (run({"unshare", "-m", "true"}).status != 0) GTEST_SKIP() << "no mount namespaces";
    const TemporaryDirectory directory;
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::string lines;
    for (const bool is_there : {false, true}) {
        sockaddr_un address{AF_UNIX, {}};
        directory.file("log").copy(address.sun_path, sizeof address.sun_path - 1);
        if (is_there) bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address);
        Daemon daemon(
            {"-l", "6"}, "127.0.0.1",
            {"unshare", "-m", "sh", "-c", "mount --bind \"$0\" /dev && exec \"$@\"",
             directory.file("."), KESTAN_BIN "/kestan"});
        push_pat();
        const Recording recording = record_while(daemon.capture(), [&] {
            auto calls = std::async(std::launch::async, [] {
                ControlClient client;
                for (int i = 0; i < 1000; ++i) client.ClearCAT();
            });
            calls.wait_for(1s);
            while (calls.wait_for(0s) != std::future_status::ready) {
                std::array<char, 256> line{};
                if (recv(log, line.data(), line.size() - 1, MSG_DONTWAIT) > 0) {
                    lines += line.data();
                }
            }
        });
        EXPECT_GT(recording.packets.size(), 10u);
        EXPECT_LT(recording.latest_s(), kLateS);
    }
    EXPECT_NE(lines.find("<30>"), std::string::npos);  // LOG_DAEMON, LOG_INFO
    EXPECT_NE(lines.find("Forced output address."), std::string::npos);
    close(log);
}

}  // namespace
