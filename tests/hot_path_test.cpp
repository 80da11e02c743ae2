// What a pass of the pacing loop costs, counted: no allocation, and one system call per
// datagram, which takes the packets from where the streams have put them.

#include <sys/socket.h>

#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "app/output.h"
#include "control/mux_control_handler.h"
#include "dvb/nanoseconds.h"
#include "framework/network.h"
#include "mux/muxer.h"
#include "tests/support/random_tables.h"
#include "tests/support/simulated_clock.h"

namespace {

struct EndOfRun {};

bool counting = false;
std::size_t allocations = 0;
std::size_t sends = 0;
std::size_t bytes_sent = 0;
std::size_t copied_datagrams = 0;  // not sent from the muxer's buffer

// Tables of every kind, of one and of several sections; PMTs share PIDs or do not.
void push_tables(cm_MuxControlSrvHandler& handler) {
    RandomTables random(1);
    handler.NewPAT(random.pat(250));
    handler.NewCAT(random.cat(1500));
    handler.NewSDTActual(random.sdt(60, 50));
    for (std::int16_t service = 1; service <= 300; ++service) {
        handler.NewPMT(random.pmt(service, 1 + random.below(1000)),
                       static_cast<std::int16_t>(0x20 + random.below(150)));
    }
}

void run_for(std::int64_t ns) {
    const std::int64_t end = simulated_clock::now_ns() + ns;
    simulated_clock::on_sleep = [end] {
        if (simulated_clock::now_ns() < end) return;
        counting = false;
        throw EndOfRun();
    };
    counting = true;
    try {
        muxer_run(0, 5);
    } catch (const EndOfRun&) {
        simulated_clock::on_sleep = nullptr;
    }
}

TEST(HotPath, AllocatesNothingAndSendsADatagramWithOneCall) {
    for (const std::uint32_t kbps : {1000u, 50000u}) {  // with too much due, and little
        muxer_create(kbps, send_output);
        cm_MuxControlSrvHandler handler;
        push_tables(handler);
        allocations = sends = bytes_sent = copied_datagrams = 0;
        const std::uint64_t sleeps_before = simulated_clock::sleeps();
        run_for(10 * kNsPerSecond);

        EXPECT_EQ(allocations, 0u);
        EXPECT_EQ(copied_datagrams, 0u);
        EXPECT_GT(sends, 900u);
        EXPECT_LE(sends, simulated_clock::sleeps() - sleeps_before);  // one per pass
        EXPECT_EQ(bytes_sent % kTsPacketSize, 0u);
        if (kbps == 1000) {
            EXPECT_EQ(bytes_sent, 7 * kTsPacketSize * sends);
        }
    }
}

}  // namespace

// What else the output stands on, which is not opened here.
int orvel::network::NICIP_VLAN_Int_getFPGA_IPAddress(std::string& /*address*/) {
    return -1;
}

extern "C" ssize_t __wrap_sendto(int /*fd*/, const void* data, size_t length,
                                 int /*flags*/, const sockaddr* /*to*/,
                                 socklen_t /*size*/) {
    ++sends;
    bytes_sent += length;
    if (data != the_muxer->buffer_begin.get()) ++copied_datagrams;
    return static_cast<ssize_t>(length);
}

// Memory that operator new hands out comes from here, whatever its form.
void* operator new(std::size_t size) {
    if (counting) ++allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
