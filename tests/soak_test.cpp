// Long runs at 1,000 kbit/s on the simulated clock, with a table updated every few
// seconds and every packet checked: counters, sections, repetition intervals, and the
// rate.
//
// KESTAN_SOAK_DAYS gives the length of the long run in days of stream time; an hour
// without it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "control/mux_control_handler.h"
#include "mux/slot_time.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"
#include "tools/section_collector.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint32_t kBitrateKbps = 1000;
constexpr std::int64_t kSlotNs = 1504000;  // 1,504 bits at 1,000 kbit/s
constexpr std::int64_t kUpdateEveryNs = 7 * kNsPerSecond;
constexpr std::int64_t kMinuteNs = 60 * kNsPerSecond;
constexpr std::size_t kServices = 10;
constexpr std::uint16_t kFirstPmtPid = 0x100;
constexpr std::uint16_t kPmtPids = 4;
constexpr std::uint16_t kTdtPid = 0x14;

// With this many streams, and at less than half the bitrate, a packet that is due waits
// for one of each other stream at most.
constexpr std::int64_t kMaxWaitNs = (4 + kPmtPids) * kSlotNs;

// A section of a carrousel may be overtaken once by each of the others.
constexpr std::int64_t kPmtLimitNs = 2 * 200 * kNsPerMs + kMaxWaitNs;

// The first thing that went wrong. It ends the run where no library's frame is in
// between.
std::string failure;

bool require(bool holds, const std::string& what) {
    if (!holds && failure.empty()) {
        failure = what + " at " + std::to_string(simulated_clock::now_ns()) + " ns";
    }
    return holds;
}

// What one PID carries, and the state of its receiver.
struct Pid {
    explicit Pid(SectionCollector::Callback on_section)
        : receiver(std::move(on_section)) {}

    struct Table {
        int version = 0;
        std::vector<std::int64_t> last_ns;  // by section_number
        std::int64_t installed_ns = simulated_clock::now_ns();
    };
    SectionCollector receiver;
    std::map<std::uint16_t, Table> tables;  // by service; one else
    std::uint64_t updates = 0;
    std::uint64_t packets = 0;
};

class Soak {
public:
    Soak() {
        fake_framework::clock = {};
        playout_.on_datagram = [this](const Datagram& datagram) { check(datagram); };
        open(kTdtPid);
        for (const auto pid : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{0x11}}) {
            open(pid);
            update(pid);
        }
        for (std::uint16_t service = 0; service < kServices; ++service) {
            update_service(service);
        }
    }

    void run_for(std::int64_t ns) {
        const std::uint64_t tdts = pids_.at(kTdtPid)->packets;
        std::int64_t next = kUpdateEveryNs;
        std::function<void()> step = [&] {
            update_something();
            playout_.at(next += kUpdateEveryNs, step);
        };
        playout_.at(next, step);
        playout_.run_for(ns);
        for (const auto& [pid, state] : pids_) require_fresh(pid, *state);
        EXPECT_NEAR(static_cast<double>(pids_.at(kTdtPid)->packets - tdts),
                    static_cast<double>(ns / kNsPerSecond), 1);
    }

    std::uint64_t packets = 0;
    std::uint64_t updates = 0;
    std::int64_t worst_ns = 0;      // deviation from the period of PAT, CAT, SDT and TDT
    std::int64_t worst_pmt_ns = 0;  // interval of a PMT

private:
    void open(std::uint16_t pid) {
        pids_[pid] = std::make_unique<Pid>(
            [this, pid](const auto& section) { check(pid, section); });
    }

    static std::int64_t period_ns(std::uint16_t pid) {
        if (pid == 0x01 || pid == 0x11) return 500 * kNsPerMs;
        return (pid == kTdtPid ? 1000 : 200) * kNsPerMs;
    }

    void update_something() {
        constexpr std::uint16_t fixed[] = {0x00, 0x01, 0x11};
        const std::size_t choice = random_.below(3 + kServices);
        if (choice < 3) return update(fixed[choice]);
        update_service(static_cast<std::uint16_t>(choice - 3));
    }

    void update(std::uint16_t pid) {
        int version = 0;
        if (pid == 0x00) {
            PAT pat = random_.pat(1 + random_.below(120));
            version = pat.version_number = new_version();
            handler_.NewPAT(pat);
        } else if (pid == 0x01) {
            CAT cat = random_.cat(random_.below(1500));
            version = cat.version_number = new_version();
            handler_.NewCAT(cat);
        } else {
            SDT sdt = random_.sdt(1 + random_.below(30), random_.below(100));
            version = sdt.version_number = new_version();
            handler_.NewSDTActual(sdt);
        }
        pids_.at(pid)->tables.clear();
        expect(pid, 0, version);
    }

    // One call in four stops the service instead; it comes back on any of the PIDs.
    void update_service(std::uint16_t service) {
        const auto known = pid_of_.find(service);
        if (known != pid_of_.end() && random_.below(4) == 0) return stop(service);
        const auto pid =
            known != pid_of_.end()
                ? known->second
                : static_cast<std::uint16_t>(kFirstPmtPid + random_.below(kPmtPids));
        PMT pmt = random_.pmt(service, random_.below(600));
        const int version = pmt.version_number = new_version();
        handler_.NewPMT(pmt, static_cast<std::int16_t>(pid));
        pid_of_[service] = pid;
        if (pids_.count(pid) == 0) open(pid);
        expect(pid, service, version);
    }

    void stop(std::uint16_t service) {
        const std::uint16_t pid = pid_of_.at(service);
        handler_.StopPMT(static_cast<std::int16_t>(service), 0);
        pid_of_.erase(service);
        Pid& state = *pids_.at(pid);
        ++state.updates;
        state.tables.erase(service);
        if (state.tables.empty()) pids_.erase(pid);
    }

    int new_version() { return static_cast<int>(++updates % 32); }

    void expect(std::uint16_t pid, std::uint16_t service, int version) {
        Pid& state = *pids_.at(pid);
        require_fresh(pid, state);
        ++state.updates;
        state.tables[service] = Pid::Table();
        state.tables[service].version = version;
        static_cast<void>(fake_framework::take_log());
    }

    // No datagram comes before the packets sent so far have had their time at the
    // bitrate, so that no stretch of the stream, however short, is faster.
    void check(const Datagram& datagram) {
        require(datagram.packets() >= 1 && datagram.packets() <= 7, "datagram size");
        require(datagram.time_ns >= free_ns_, "too high a rate");
        free_ns_ =
            datagram.time_ns + static_cast<std::int64_t>(datagram.packets()) * kSlotNs;
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            const auto* const packet =
                reinterpret_cast<const std::uint8_t*>(&datagram.bytes[at]);
            const auto pid =
                static_cast<std::uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
            const auto found = pids_.find(pid);
            if (found == pids_.end()) throw std::runtime_error("unknown PID");
            Pid& state = *found->second;
            state.receiver.push(packet);
            require(state.receiver.continuity_errors() == 0, "continuity");
            require(state.receiver.crc_errors() == 0, "CRC_32");
            require(state.receiver.torn_sections() <= state.updates, "torn section");
            ++state.packets;
            ++packets;
        }
        if (!failure.empty()) throw std::runtime_error(failure);
    }

    void check(std::uint16_t pid, const dvbpsi_psi_section_t& section) {
        Pid& state = *pids_.at(pid);
        const bool has_version = section.b_syntax_indicator;
        const auto found =
            pid == kTdtPid
                ? state.tables.emplace(0, Pid::Table()).first
                : state.tables.find(pid >= kFirstPmtPid ? section.i_extension : 0);
        if (!require(found != state.tables.end(), "unknown table")) return;
        Pid::Table& table = found->second;
        require(!has_version || section.i_version == table.version, "old version");
        const std::size_t number = has_version ? section.i_number : 0;
        if (table.last_ns.empty()) {
            table.last_ns.resize(has_version ? section.i_last_number + 1u : 1u, 0);
        }
        std::int64_t& last_ns = table.last_ns.at(number);
        const std::int64_t now_ns = simulated_clock::now_ns();
        if (last_ns != 0) check_interval(pid, now_ns - last_ns);
        last_ns = now_ns;
    }

    void check_interval(std::uint16_t pid, std::int64_t interval_ns) {
        if (pid >= kFirstPmtPid) {
            worst_pmt_ns = std::max(worst_pmt_ns, interval_ns);
            require(interval_ns <= kPmtLimitNs, "PMT interval");
            return;
        }
        const std::int64_t off_ns = std::abs(interval_ns - period_ns(pid));
        worst_ns = std::max(worst_ns, off_ns);
        require(off_ns <= kMaxWaitNs, "interval");
    }

    // Every section has come since the table was installed, and not too long ago.
    static void require_fresh(std::uint16_t pid, const Pid& state) {
        const std::int64_t now_ns = simulated_clock::now_ns();
        const std::int64_t limit_ns =
            pid >= kFirstPmtPid ? kPmtLimitNs : period_ns(pid) + kMaxWaitNs;
        for (const auto& [extension, table] : state.tables) {
            if (now_ns - table.installed_ns <= limit_ns) continue;
            require(!table.last_ns.empty(), "silent PID");
            for (const std::int64_t last_ns : table.last_ns) {
                require(now_ns - last_ns <= limit_ns, "missing section");
            }
        }
    }

    Playout playout_{kBitrateKbps};
    RandomTables random_{30};
    cm_MuxControlSrvHandler handler_;
    std::map<std::uint16_t, std::unique_ptr<Pid>> pids_;
    std::map<std::uint16_t, std::uint16_t> pid_of_;  // by service
    std::int64_t free_ns_ = 0;
};

TEST(Soak, BreaksNothing) {
    const char* const days = std::getenv("KESTAN_SOAK_DAYS");
    const double minutes = days == nullptr ? 60 : std::atof(days) * 24 * 60;
    ASSERT_GE(minutes, 1);
    Soak soak;
    soak.run_for(static_cast<std::int64_t>(minutes) * kMinuteNs);
    std::printf(
        "%.0f minutes: %llu packets, %llu updates; PAT, CAT, SDT, TDT off by %.1f slots "
        "at most, PMT intervals up to %.0f ms\n",
        minutes, static_cast<unsigned long long>(soak.packets),
        static_cast<unsigned long long>(soak.updates),
        static_cast<double>(soak.worst_ns) / kSlotNs,
        static_cast<double>(soak.worst_pmt_ns) / kNsPerMs);
}

// Where counters of 31 and 32 bits end, in milliseconds (25 and 50 days), in hundredths
// of a second (249 and 497 days) and in seconds (68 and 136 years) of uptime.
TEST(Soak, CrossesTheEndsOfNarrowCounters) {
    for (const std::int64_t unit_ns : {kNsPerMs, 10 * kNsPerMs, kNsPerSecond}) {
        for (const std::int64_t end : {std::int64_t{1} << 31, std::int64_t{1} << 32}) {
            const std::int64_t before_ns = end * unit_ns - 5 * kMinuteNs;
            simulated_clock::advance(before_ns - simulated_clock::now_ns());
            Soak().run_for(10 * kMinuteNs);
        }
    }
}

}  // namespace
