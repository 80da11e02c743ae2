// side_by_side DIRECTORY INPUT.ts [SECONDS]: Kestan, the bare loop and, where there is an
// input for it, ffmpeg send the same bitrates, in turns, to a socket whose kernel stamps
// what arrives. Writes Markdown tables to standard output and, for a plot, the
// distribution of the lateness to DIRECTORY/lateness-<name>.dat.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <thrift/TOutput.h>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"
#include "tests/support/random_tables.h"
#include "thrift/cm_MuxControlSrv.h"
#include "thrift/instance_ports.h"
#include "thrift/simple_client.h"
#include "tools/kestan-monitor/measure/series.h"
#include "tools/receive/udp_receiver.h"

using std::chrono::seconds;

namespace {

constexpr int kPort = 5999;
constexpr int kRounds = 5;
constexpr std::uint16_t kFirstPmtPid = 0x20;

// A program that runs until it goes out of scope.
using Program = boost::process::child;

struct Datagram {
    std::int64_t time_ns;  // when the kernel received it, on the steady clock
    std::string bytes;
};
using Datagrams = std::vector<Datagram>;

// Returns the datagrams that come within `duration` from now on.
Datagrams receive_for(UdpReceiver& receiver, std::chrono::nanoseconds duration) {
    bool has_old = true;
    while (std::exchange(has_old, false)) {
        receiver.receive(0, [&](auto...) { has_old = true; });
    }
    Datagrams datagrams;
    const std::int64_t end = steady_now_ns() + duration.count();
    while (steady_now_ns() < end) {
        receiver.receive(end - steady_now_ns(), [&](auto time, auto* data, auto size) {
            datagrams.push_back({time, {data, data + size}});
        });
    }
    return datagrams;
}

// A sender. It starts with a bitrate in kbit/s and sends until its program ends.
struct Subject {
    std::string name;
    std::function<Program(int kbps)> start;
};

// Starts a program, found by its name or path, with its arguments.
Program start(std::vector<std::string> command) {
    command.insert(command.begin(), "/usr/bin/env");
    return Program(command);
}

Program start_kestan(int kbps) {
    return start({KESTAN_PROGRAM, "-O", "127.0.0.1/" + std::to_string(kPort), "-b",
                  std::to_string(kbps)});
}

using ControlClient =
    orvel::thrift::utils::SimpleClient<orvel::thrift::ci_module::cm_MuxControlSrvClient>;

// Tries for ten seconds: the daemon may be starting.
std::unique_ptr<ControlClient> connect() {
    for (int tries = 500;; --tries) {
        try {
            return std::make_unique<ControlClient>("127.0.0.1", ports_of(0).control);
        } catch (const apache::thrift::TException&) {
            if (tries == 0) throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
}

// Pushes services with PMTs of `bytes` each on `pids` PIDs.
void push_pmts(ControlClient& client, int services, int pids, std::size_t bytes) {
    RandomTables random(1);
    for (int service = 0; service < services; ++service) {
        client.NewPMT(random.pmt(service, bytes),
                      static_cast<std::int16_t>(kFirstPmtPid + service % pids));
    }
}

// PMTs of five packets that ask for more than 50,000 kbit/s: every slot is taken and
// every datagram has seven packets.
Program start_full_kestan(int kbps) {
    auto program = start_kestan(kbps);
    push_pmts(*connect(), 1600, 8, 900);
    return program;
}

// A small multiplex: eight services with PMTs of one packet, on `pmt_pids` PIDs.
Program start_small_kestan(int kbps, int pmt_pids) {
    auto program = start_kestan(kbps);
    const auto client = connect();
    RandomTables random(1);
    client->NewPAT(random.pat(8));
    client->NewSDTActual(random.sdt(8, 15));
    push_pmts(*client, 8, pmt_pids, 150);
    return program;
}

Program start_bare_loop(int kbps) {
    return start({BARE_LOOP_PROGRAM, std::to_string(kPort), std::to_string(kbps)});
}

// Its multiplexer fills a stream of 500 kbit/s up with null packets.
Program start_ffmpeg(int kbps, const std::string& input) {
    const std::string rate = std::to_string(kbps) + "000";
    const std::string output = "udp://127.0.0.1:" + std::to_string(kPort) +
                               "?pkt_size=1316&burst_bits=10528&bitrate=" + rate;
    return start({"ffmpeg", "-loglevel", "quiet", "-re", "-stream_loop", "-1", "-i",
                  input, "-c", "copy", "-f", "mpegts", "-muxrate", rate, "-pat_period",
                  "0.2", "-sdt_period", "0.5", output});
}

std::int64_t cpu_time_ns(const Program& program) {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(program.id(), &clock) != 0) return 0;
    clock_gettime(clock, &used);
    return used.tv_sec * kNsPerSecond + used.tv_nsec;
}

// Returns how late each datagram came, in microseconds and sorted. Lateness is the
// distance from the straight line of time over packets that fits all datagrams best,
// moved so that none is early.
std::vector<double> lateness_us(const Datagrams& datagrams) {
    const auto n = static_cast<double>(datagrams.size());
    std::vector<std::pair<double, double>> points;  // packets sent before, time
    double sent = 0, sum_x = 0, sum_y = 0, sum_xx = 0, sum_xy = 0;
    for (const auto& datagram : datagrams) {
        const auto time = static_cast<double>(datagram.time_ns - datagrams[0].time_ns);
        points.emplace_back(sent, time);
        sum_x += sent;
        sum_y += time;
        sum_xx += sent * sent;
        sum_xy += sent * time;
        sent += static_cast<double>(datagram.bytes.size()) / kTsPacketSize;
    }
    const double slope = (n * sum_xy - sum_x * sum_y) / (n * sum_xx - sum_x * sum_x);
    std::vector<double> late;
    late.reserve(points.size());
    for (const auto& [x, y] : points) late.push_back((y - x * slope) / 1000);
    std::sort(late.begin(), late.end());
    const double earliest = late.front();
    for (double& us : late) us -= earliest;
    return late;
}

double quantile(const std::vector<double>& sorted, double q) {
    return sorted[static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1))];
}

struct Figures {
    double kbps;
    double cpu_percent;
    std::vector<double> late;  // sorted
};

Figures measure(UdpReceiver& receiver, const Subject& subject, int kbps,
                seconds duration) {
    const auto program = subject.start(kbps);
    std::this_thread::sleep_for(seconds(2));
    const std::int64_t cpu_before = cpu_time_ns(program);
    const std::int64_t start = steady_now_ns();
    const Datagrams datagrams = receive_for(receiver, duration);
    const auto elapsed = static_cast<double>(steady_now_ns() - start);
    const auto cpu = static_cast<double>(cpu_time_ns(program) - cpu_before);
    if (datagrams.size() < 3) return {0, 0, {0}};
    auto bytes = -static_cast<double>(datagrams.back().bytes.size());
    for (const auto& datagram : datagrams) {
        bytes += static_cast<double>(datagram.bytes.size());
    }
    const auto span =
        static_cast<double>(datagrams.back().time_ns - datagrams.front().time_ns);
    return {8 * bytes * kNsPerMs / span, 100 * cpu / elapsed, lateness_us(datagrams)};
}

// Prints one row: the median of the rounds for each figure.
void print_row(const std::string& name, int kbps, const std::vector<Figures>& rounds) {
    const auto middle = [&](const auto& figure) {
        std::vector<double> values;
        std::transform(rounds.begin(), rounds.end(), std::back_inserter(values), figure);
        std::sort(values.begin(), values.end());
        return quantile(values, 0.5);
    };
    const double rate = middle([](const Figures& f) { return f.kbps; });
    std::printf("| %d | %s | %.3f | %+.4f %% | %.0f | %.0f | %.0f | %.2f %% |\n", kbps,
                name.c_str(), rate, 100 * (rate / kbps - 1),
                middle([](const Figures& f) { return quantile(f.late, 0.5); }),
                middle([](const Figures& f) { return quantile(f.late, 0.99); }),
                middle([](const Figures& f) { return f.late.back(); }),
                middle([](const Figures& f) { return f.cpu_percent; }));
    std::fflush(stdout);
}

void write_distribution(const std::string& path, const std::vector<Figures>& rounds) {
    std::vector<double> late;
    for (const Figures& round : rounds) {
        late.insert(late.end(), round.late.begin(), round.late.end());
    }
    std::sort(late.begin(), late.end());
    std::ofstream file(path);
    constexpr int points_per_decade = 30;
    for (int point = 0; point <= 5 * points_per_decade; ++point) {
        const double beyond = std::pow(10.0, -point / double{points_per_decade});
        file << quantile(late, 1 - beyond) << ' ' << beyond << '\n';
    }
}

// Measures the subjects in turns and prints a row for each. The rounds of a subject take
// `duration` in all.
void compare(UdpReceiver& receiver, const std::vector<Subject>& subjects, int kbps,
             seconds duration, const std::string& directory) {
    std::map<std::string, std::vector<Figures>> figures;
    for (int round = 0; round < kRounds; ++round) {
        for (const Subject& subject : subjects) {
            figures[subject.name].push_back(
                measure(receiver, subject, kbps, duration / kRounds));
        }
    }
    for (const Subject& subject : subjects) {
        print_row(subject.name, kbps, figures[subject.name]);
        if (directory.empty()) continue;
        write_distribution(directory + "/lateness-" + subject.name + ".dat",
                           figures[subject.name]);
    }
}

// Returns the intervals between sections of the PID's first table. REQUIRES: it has one
// section.
Spread intervals_ns(const Datagrams& datagrams, int pid) {
    Spread intervals;
    std::int64_t last = 0;
    std::string first_id;
    for (const auto& datagram : datagrams) {
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            const auto* const packet =
                reinterpret_cast<const std::uint8_t*>(&datagram.bytes[at]);
            if (pid_of(packet) != pid || !starts_section(packet)) continue;
            const std::string id = datagram.bytes.substr(at + 8, 2);
            if (first_id.empty()) first_id = id;
            if (id != first_id) continue;
            if (last != 0) intervals.add(datagram.time_ns - last);
            last = datagram.time_ns;
        }
    }
    return intervals;
}

void print_intervals(UdpReceiver& receiver, const Subject& subject, int kbps, int pmt_pid,
                     seconds duration) {
    const auto program = subject.start(kbps);
    std::this_thread::sleep_for(seconds(2));
    const Datagrams datagrams = receive_for(receiver, duration);
    const std::tuple<const char*, int, double> tables[] = {
        {"PAT", 0, 200}, {"PMT", pmt_pid, 200}, {"SDT", 0x11, 500}};
    for (const auto& [table, pid, period] : tables) {
        const Spread intervals = intervals_ns(datagrams, pid);
        if (intervals.count == 0) continue;
        const double least = static_cast<double>(intervals.least) / kNsPerMs;
        const double most = static_cast<double>(intervals.greatest) / kNsPerMs;
        const double slot = static_cast<double>(kTsPacketBits) / kbps;
        const double off = std::max(std::abs(least - period), std::abs(most - period));
        std::printf("| %s | %s | %.0f | %.2f | %.2f | %.2f |\n", subject.name.c_str(),
                    table, period, least, most, off / slot);
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s DIRECTORY INPUT.ts [SECONDS]\n", argv[0]);
        return 2;
    }
    const std::string directory = argv[1];
    const std::string input = argv[2];
    const seconds minute(argc > 3 ? std::atoi(argv[3]) : 60);
    UdpReceiver receiver(parse_endpoint("0.0.0.0:" + std::to_string(kPort)), "");
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});
    const bool has_ffmpeg = std::ifstream(input).good();
    const auto ffmpeg = [&](int kbps) { return start_ffmpeg(kbps, input); };
    std::vector<Subject> subjects = {{"Kestan", start_full_kestan},
                                     {"bare_loop", start_bare_loop}};
    if (has_ffmpeg) subjects.push_back({"ffmpeg", ffmpeg});

    std::puts(
        "| kbit/s | | rate, kbit/s | off by | late p50, µs | p99, µs | max, µs | CPU "
        "|\n|--:|---|--:|--:|--:|--:|--:|--:|");
    compare(receiver, subjects, 50000, minute, directory);
    for (const int kbps : {333, 1234, 7777}) {
        compare(receiver, subjects, kbps, minute, "");
    }
    constexpr int small_kbps = 1000;
    std::puts(
        "\n| at 1000 kbit/s | table | period, ms | shortest, ms | longest, ms | off by, "
        "slots |\n|---|---|--:|--:|--:|--:|");
    for (const int pmt_pids : {1, 8}) {
        const auto start = [=](int kbps) { return start_small_kestan(kbps, pmt_pids); };
        print_intervals(receiver,
                        {"Kestan, 8 PMTs on PIDs: " + std::to_string(pmt_pids), start},
                        small_kbps, kFirstPmtPid, minute);
    }
    constexpr int ffmpeg_pmt_pid = 0x1000;
    if (has_ffmpeg) {
        print_intervals(receiver, {"ffmpeg", ffmpeg}, small_kbps, ffmpeg_pmt_pid, minute);
    }
}
