// What a receiver may rely on in the long run: the bitrate and the tables' intervals, on
// the simulated clock and thus to the nanosecond.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
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
            before_last = std::exchange(packets, packets + datagram.packets());
        };
        playout.run_for(kMinute);
        const double bits_per_ms = static_cast<double>(before_last * kTsPacketBits) *
                                   kNsPerMs / static_cast<double>(last - first);
        EXPECT_GT(last - first, kMinute * 99 / 100);
        EXPECT_NEAR(bits_per_ms, kbps, kbps * 0.0001);
    }
}

// A table waits while the packets of one pass are sent, which are hardly ever those of
// more than two streams: the PMTs here have one PID or two.
TEST(Rate, KeepsTheIntervalsOfTheTablesWithinTwoSlots) {
    const std::map<int, std::int64_t> periods = {{0x00, 200 * kNsPerMs},
                                                 {0x01, 500 * kNsPerMs},
                                                 {0x11, 500 * kNsPerMs},
                                                 {0x14, kNsPerSecond}};
    for (const std::uint32_t kbps : {333u, 1000u, 1234u, 7777u, 99991u}) {
        for (const int pmt_pids : {1, 2}) {
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
            const auto two_slots =
                static_cast<std::int64_t>(2 * the_muxer->packet_interval_ns);
            std::map<int, std::int64_t> last_times;
            playout.on_datagram = [&](const Datagram& datagram) {
                for (std::size_t at = 2; at < datagram.bytes.size();
                     at += kTsPacketSize) {
                    const int pid = datagram.bytes[at];  // one packet is the whole table
                    const auto last = std::exchange(last_times[pid], datagram.time_ns);
                    if (last == 0 || periods.count(pid) == 0) continue;
                    const auto off = datagram.time_ns - last - periods.at(pid);
                    ASSERT_LE(std::abs(off), two_slots) << pid << " at " << kbps;
                }
            };
            playout.run_for(kMinute);
            EXPECT_EQ(last_times.size(), 4u + static_cast<std::size_t>(pmt_pids));
        }
    }
}

}  // namespace
