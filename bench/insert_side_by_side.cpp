// insert_side_by_side TABLES.json [SECONDS] [KBPS]: sends a constant stream, a fifth of
// it null packets that are evenly spread, through kestan-insert and through a bare relay,
// in turns. Writes a Markdown table of their processor time and of the delay of
// datagrams, as the kernel's time stamps show it, to standard output.

#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/io.hpp>

#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "dvb/ts_packet.h"
#include "tools/receive/udp_receiver.h"

using boost::process::child;
using std::chrono::nanoseconds;

namespace {

constexpr int kRounds = 3;
constexpr std::size_t kPackets = 7;  // per datagram
constexpr std::size_t kNullEvery = 5;
constexpr std::uint16_t kVideoPid = 0x0FFE;
constexpr std::size_t kStampAt = 4;  // in a packet of kVideoPid
constexpr const char* kInputAddress = "127.0.0.1:5901";
constexpr const char* kTablesAddress = "127.0.0.1:5902";
constexpr const char* kOutputAddress = "127.0.0.1:5903";

using Datagram = std::array<std::uint8_t, kPackets * kTsPacketSize>;

void write_header(std::uint8_t* packet, std::uint16_t pid) {
    packet[0] = kSyncByte;
    packet[1] = static_cast<std::uint8_t>(pid >> 8);
    packet[2] = static_cast<std::uint8_t>(pid & 0xFF);
    packet[3] = kHasPayload;
}

// Sends until `stop`; returns the number of datagrams.
std::uint64_t send_stream(std::int64_t kbps, const std::atomic<bool>& stop) {
    prctl(PR_SET_TIMERSLACK, 1);
    const sockaddr_in to = parse_endpoint(kInputAddress);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const std::int64_t spacing =
        static_cast<std::int64_t>(kPackets * kTsPacketBits) * kNsPerMs / kbps;
    Datagram datagram{};
    std::uint64_t sent = 0;
    std::size_t number = 0;
    for (std::int64_t due = steady_now_ns(); !stop; due += spacing, ++sent) {
        std::this_thread::sleep_for(nanoseconds(due - steady_now_ns()));
        const std::int64_t now = steady_now_ns();
        for (std::size_t i = 0; i < kPackets; ++i, ++number) {
            std::uint8_t* const packet = &datagram[i * kTsPacketSize];
            write_header(packet, number % kNullEvery == 0 ? kNullPid : kVideoPid);
            std::memcpy(packet + kStampAt, &now, sizeof now);
        }
        sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    return sent;
}

struct Arrivals {
    std::vector<double> delays_us;
    std::int64_t last_pat = 0;
    std::int64_t longest_pat_interval = 0;

    void add(std::int64_t arrival, const std::uint8_t* data, std::size_t size) {
        bool is_timed = false;
        for (; size >= kTsPacketSize; data += kTsPacketSize, size -= kTsPacketSize) {
            if (pid_of(data) == kVideoPid && !std::exchange(is_timed, true)) {
                std::int64_t sent = 0;
                std::memcpy(&sent, data + kStampAt, sizeof sent);
                delays_us.push_back(static_cast<double>(arrival - sent) / 1000);
            }
            if (pid_of(data) != kPatPid) continue;
            const std::int64_t before = std::exchange(last_pat, arrival);
            if (before != 0)
                longest_pat_interval = std::max(longest_pat_interval, arrival - before);
        }
    }
};

double cpu_s(const child& program) {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(program.id(), &clock) != 0) return 0;
    clock_gettime(clock, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

child start(std::vector<std::string> command) {
    const std::string program = command.front();
    command.erase(command.begin());
    return child(program, boost::process::args(command),
                 boost::process::std_out > boost::process::null);
}

struct Figures {
    double cpu_percent;
    std::uint64_t sent;
    Arrivals arrivals;
};

Figures measure(const child& subject, int seconds, std::int64_t kbps) {
    UdpReceiver receiver(parse_endpoint(kOutputAddress), "");
    std::atomic<bool> stop{false};
    Figures figures{};
    const double cpu_before = cpu_s(subject);
    std::thread sender([&] { figures.sent = send_stream(kbps, stop); });
    const std::int64_t begin = steady_now_ns();
    const auto receive_until = [&](std::int64_t end) {
        while (steady_now_ns() < end) {
            receiver.receive(end - steady_now_ns(),
                             [&](auto arrival, auto* data, auto size) {
                                 figures.arrivals.add(arrival, data, size);
                             });
        }
    };
    receive_until(begin + seconds * kNsPerSecond);
    figures.cpu_percent = (cpu_s(subject) - cpu_before) * 100 / seconds;
    stop = true;
    sender.join();
    receive_until(steady_now_ns() + kNsPerSecond / 2);
    std::sort(figures.arrivals.delays_us.begin(), figures.arrivals.delays_us.end());
    return figures;
}

double quantile(const std::vector<double>& sorted, double q) {
    if (sorted.empty()) return 0;
    return sorted[static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1))];
}

void print_row(const char* name, const Figures& figures) {
    const auto& delays = figures.arrivals.delays_us;
    std::printf(
        "| %s | %llu | %lld | %.1f %% | %.0f µs | %.0f µs | %.0f µs | %.1f ms |\n", name,
        static_cast<unsigned long long>(figures.sent),
        static_cast<long long>(figures.sent) - static_cast<long long>(delays.size()),
        figures.cpu_percent, quantile(delays, 0.5), quantile(delays, 0.99),
        quantile(delays, 1),
        static_cast<double>(figures.arrivals.longest_pat_interval) / 1e6);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 60;
    const std::int64_t kbps = argc > 3 ? std::atoi(argv[3]) : 100000;
    const child kestan = start({KESTAN_PROGRAM, "-O", "127.0.0.1/5902", "-b", "2000"});
    std::this_thread::sleep_for(std::chrono::seconds(2));
    start({KESTAN_CONTROL_PROGRAM, "push", argv[1]}).wait();

    std::printf(
        "| %lld kbit/s for %d s | datagrams | lost | CPU | delay p50 | p99 | max | "
        "PAT at most after |\n|---|--:|--:|--:|--:|--:|--:|--:|\n",
        static_cast<long long>(kbps), seconds);
    for (int round = 0; round < kRounds; ++round) {
        for (const bool is_floor : {true, false}) {
            const child subject = is_floor ? start({BARE_RELAY_PROGRAM, "5901", "5903"})
                                           : start({INSERT_PROGRAM, kInputAddress,
                                                    kTablesAddress, kOutputAddress});
            std::this_thread::sleep_for(std::chrono::seconds(1));
            print_row(is_floor ? "bare relay" : "kestan-insert",
                      measure(subject, seconds, kbps));
        }
    }
}
