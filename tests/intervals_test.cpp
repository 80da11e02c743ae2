// What a receiver may rely on of the tables' intervals, to the nanosecond.

#include <map>
#include <utility>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "mux/muxer.h"
#include "tests/support/playout.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"

namespace {

// Tables of one packet each, pushed at odd moments, and a receiver that knows when each
// packet is due.
class OnePacketTables {
public:
    OnePacketTables(std::uint32_t kbps, std::size_t pmt_pids)
        : playout_(kbps),
          random_(kbps),
          slot_ns_(static_cast<std::int64_t>(the_muxer->packet_interval_ns)) {
        due_[kTdtPid] = {simulated_clock::now_ns(), kNsPerSecond};
        push(kPatPid, 200, [&] { handler_.NewPAT(random_.pat(8)); });
        push(kCatPid, 500, [&] { handler_.NewCAT(random_.cat(20)); });
        push(kSdtPid, 500, [&] { handler_.NewSDTActual(random_.sdt(8, 4)); });
        for (std::size_t service = 0; service < 8; ++service) {
            playout_.at(at_ns_ += step(), [=] {
                push_pmt(static_cast<std::int16_t>(service),
                         static_cast<std::uint16_t>(0x20 + service % pmt_pids));
            });
        }
        playout_.on_datagram = [&](const Datagram& datagram) { check(datagram); };
    }

    void run_for_slots(std::int64_t count) {
        playout_.run_for(count * slot_ns_);
        for (const auto& [pid, due] : due_) {
            EXPECT_GT(due.next_ns, simulated_clock::now_ns() - 16 * slot_ns_) << pid;
        }
    }

private:
    struct Due {
        std::int64_t next_ns;
        std::int64_t interval_ns;
        std::int64_t last_ns = 0;  // when its last packet was sent
        std::int64_t last_but_one_ns = 0;
    };

    std::int64_t step() {
        return static_cast<std::int64_t>(random_.below(40)) * kNsPerMs;
    }

    template <typename NewTable>
    void push(std::uint16_t pid, std::int64_t period_ms, NewTable new_table) {
        playout_.at(at_ns_ += step(), [=] {
            new_table();
            due_[pid] = {simulated_clock::now_ns(), period_ms * kNsPerMs};
        });
    }

    // The tables of a PID share it at the sum of their rates, in whole bits per second.
    void push_pmt(std::int16_t service, std::uint16_t pid) {
        constexpr std::int64_t bits_per_second = 1504 * 5 + 1;
        handler_.NewPMT(random_.pmt(service, 100), static_cast<std::int16_t>(pid));
        Due& due = due_.try_emplace(pid, Due{simulated_clock::now_ns(), 0}).first->second;
        due.interval_ns = 1504 * kNsPerSecond / (bits_per_second * ++services_on_[pid]);
    }

    void check(const Datagram& datagram) {
        std::int64_t slot = datagram.time_ns;
        if (slot > free_from_ns_) busy_from_ns_ = slot;
        for (const std::uint16_t pid : datagram.pids()) {
            Due& due = due_.at(pid);
            EXPECT_LE(due.next_ns, slot);
            EXPECT_GT(due.next_ns, busy_from_ns_ - slot_ns_) << "a slot was left free";
            for (const auto& [other, state] : due_) {
                EXPECT_TRUE(other == pid || state.last_but_one_ns < due.next_ns)
                    << other << " was sent twice while " << pid << " was due";
            }
            due.last_but_one_ns = std::exchange(due.last_ns, slot);
            due.next_ns += due.interval_ns;
            slot += slot_ns_;
        }
        free_from_ns_ = slot;
    }

    Playout playout_;
    cm_MuxControlSrvHandler handler_;
    RandomTables random_;
    std::int64_t slot_ns_;
    std::int64_t at_ns_ = 0;          // of the last push
    std::map<int, Due> due_;          // by PID
    std::map<int, int> services_on_;  // a PID
    std::int64_t busy_from_ns_ = 0;   // without a free slot since
    std::int64_t free_from_ns_ = 0;
};

// A table keeps its interval as well as the bitrate allows: a packet that is due takes
// the first free slot, behind no more than one packet of each other stream.
TEST(Intervals, LeavesNoSlotFreeWhileATableIsDue) {
    for (const std::uint32_t kbps : {100u, 333u, 1000u, 1234u, 7777u, 99991u}) {
        for (const std::size_t pmt_pids : {1u, 2u, 8u}) {
            OnePacketTables(kbps, pmt_pids).run_for_slots(400000);
        }
    }
}

}  // namespace
