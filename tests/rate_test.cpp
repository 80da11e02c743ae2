// What a receiver may rely on in the long run: the bitrate and the tables' intervals, on
// the simulated clock and thus to the nanosecond.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include "control/mux_control_handler.h"
#include "mux/muxer.h"
#include "mux/slot_time.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"

namespace {

constexpr std::int64_t kMinute = 60 * kNsPerSecond;

TEST(Rate, IsTheBitrateAtOddBitrates) {
    for (const std::uint32_t kbps : {100u, 333u, 1234u, 7777u, 99991u}) {
        Playout playout(kbps);
        cm_MuxControlSrvHandler handler;
        RandomTables random(kbps);
        for (std::int16_t service = 1; service <= 2800; ++service) {
            handler.NewPMT(random.pmt(service, 1000),
                           static_cast<std::int16_t>(0x20 + service % 11));
        }
        std::int64_t first = 0, last = 0;
        std::uint64_t packets = 0, before_last = 0;
        playout.on_datagram = [&](const Datagram& datagram) {
            if (first == 0) first = datagram.time_ns;
            last = datagram.time_ns;
            before_last = packets;
            packets += datagram.packets();
        };
        playout.run_for(kMinute);
        const double bits_per_ms = static_cast<double>(before_last * kTsPacketBits) *
                                   kNsPerMs / static_cast<double>(last - first);
        EXPECT_GT(last - first, kMinute * 99 / 100);
        EXPECT_NEAR(bits_per_ms, kbps, kbps * 0.0001);
    }
}

// The longest deviation from its period, in slots, of each PID's tables on the wire.
using Deviations = std::map<int, double>;

Deviations deviations(std::uint32_t kbps, int pmt_pids) {
    Playout playout(kbps);
    cm_MuxControlSrvHandler handler;
    RandomTables random(kbps);
    handler.NewPAT(random.pat(8));
    handler.NewCAT(random.cat(20));
    handler.NewSDTActual(random.sdt(8, 4));
    for (std::int16_t service = 1; service <= 8; ++service) {
        handler.NewPMT(random.pmt(service, 100),
                       static_cast<std::int16_t>(0x20 + service % pmt_pids));
    }
    // A PMT's rate is rounded up to whole bits per second.
    const std::map<int, std::int64_t> periods = {{0, 200 * kNsPerMs},
                                                 {1, 500 * kNsPerMs},
                                                 {0x11, 500 * kNsPerMs},
                                                 {0x14, kNsPerSecond},
                                                 {0x20, 199973407}};
    const auto slot = static_cast<double>(the_muxer->packet_interval_ns);
    std::map<std::string, std::int64_t> last_times;  // by PID and section
    Deviations worst;
    playout.on_datagram = [&](const Datagram& datagram) {
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            const int pid = (datagram.bytes[at + 1] & 0x1F) << 8 | datagram.bytes[at + 2];
            if ((datagram.bytes[at + 1] & kPayloadUnitStart) == 0) continue;
            constexpr std::size_t section_head = 3;
            const std::string key =
                std::to_string(pid) + datagram.bytes.substr(at + 5, section_head) +
                (pid == 0x14 ? "" : datagram.bytes.substr(at + 8, section_head));
            const auto last = std::exchange(last_times[key], datagram.time_ns);
            if (last == 0) continue;
            const int kind = std::min(pid, 0x20);
            const auto off = std::abs(datagram.time_ns - last - periods.at(kind));
            worst[kind] = std::max(worst[kind], static_cast<double>(off) / slot);
        }
    };
    playout.run_for(kMinute);
    return worst;
}

// A table waits while the packets of one pass are sent, and those are of one or two
// streams: they hardly ever fall due together with more.
TEST(Rate, KeepsTheIntervalsOfTheFixedTablesWithinTwoSlots) {
    for (const std::uint32_t kbps : {333u, 1000u, 1234u, 7777u, 99991u}) {
        for (const int pmt_pids : {1, 2}) {
            const Deviations worst = deviations(kbps, pmt_pids);
            EXPECT_EQ(worst.size(), 5u);
            for (const int pid : {0, 1, 0x11, 0x14}) EXPECT_LE(worst.at(pid), 2) << pid;
        }
    }
}

TEST(Rate, KeepsEveryIntervalWithinADatagramAndASlot) {
    for (const std::uint32_t kbps : {333u, 1000u, 7777u, 99991u}) {
        for (const auto& [pid, slots] : deviations(kbps, 8)) {
            EXPECT_LE(slots, 8) << pid << " at " << kbps;
        }
    }
}

}  // namespace
