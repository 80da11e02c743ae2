// A polling pass of the pacing loop over many streams, with nothing due and with a packet
// of every stream due, beside the least that it can cost: taking the mutexes of that many
// objects, and a copy of 188 bytes under a mutex for each packet of a datagram.
//
// The label of a benchmark names its floor.

#include <array>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/locked_packets.h"
#include "dvb/nanoseconds.h"
#include "mux/muxer.h"
#include "tables/simple_table.h"

namespace {

constexpr std::uint32_t kPacketsPerPass = 7;

struct EndOfRun {};

benchmark::State* running = nullptr;

int send(const std::uint8_t* data, std::uint32_t length) {
    benchmark::DoNotOptimize(data);
    return static_cast<int>(length);
}

// SimpleTables, registered, with a packet due always or, after the first, never.
class Streams {
public:
    Streams(std::size_t count, bool always_due) {
        constexpr std::int64_t for_years = std::numeric_limits<std::int64_t>::max() / 4;
        for (std::size_t i = 0; i < count; ++i) {
            streams_.push_back(
                std::make_unique<SimpleTable>(0, always_due ? 0 : for_years));
            std::string packet(kTsPacketSize, '\0');
            streams_.back()->replace_packets(packet);
            if (!always_due) take_first_packet(*streams_.back());
            muxer_add(*streams_.back());
        }
    }
    ~Streams() {
        for (const auto& stream : streams_) muxer_remove(*stream);
    }

private:
    static void take_first_packet(SimpleTable& stream) {
        std::array<std::uint8_t, kTsPacketSize> packet{};
        stream.next_packet(packet.data(), steady_now_ns());
    }

    std::vector<std::unique_ptr<SimpleTable>> streams_;
};

// Slots of 15 ms: the slot clock is always ahead and each pass ends in a sleep.
void run_loop(benchmark::State& state, bool always_due) {
    muxer_create(100, send);
    const Streams streams(static_cast<std::size_t>(state.range(0)), always_due);
    running = &state;
    try {
        muxer_run(0, std::numeric_limits<std::uint32_t>::max());
    } catch (const EndOfRun&) {
    }
    running = nullptr;
}

void PassWithNothingDue(benchmark::State& state) {
    state.SetLabel("LockEach/" + std::to_string(state.range(0)));
    run_loop(state, false);
    delete std::exchange(the_muxer, nullptr);
}
BENCHMARK(PassWithNothingDue)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void PassWithAllDue(benchmark::State& state) {
    state.SetLabel("CopySeven/" + std::to_string(state.range(0)));
    run_loop(state, true);
    delete std::exchange(the_muxer, nullptr);
}
BENCHMARK(PassWithAllDue)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void LockEach(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    for (auto _ : state) {
        packets.lock_each();
        benchmark::DoNotOptimize(steady_now_ns());
    }
}
BENCHMARK(LockEach)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void CopySeven(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    std::array<std::uint8_t, kPacketsPerPass * kTsPacketSize> datagram;
    for (auto _ : state) {
        for (std::uint32_t i = 0; i < kPacketsPerPass; ++i) {
            packets.copy_next_of_its_own(datagram.data() + i * kTsPacketSize);
        }
        benchmark::DoNotOptimize(datagram);
        benchmark::DoNotOptimize(steady_now_ns());
    }
}
BENCHMARK(CopySeven)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

}  // namespace

// The sleep of the pacing loop is where a pass ends.
extern "C" int __wrap_nanosleep(const timespec* /*duration*/, timespec* /*remaining*/) {
    if (running != nullptr && !running->KeepRunning()) throw EndOfRun();
    return 0;
}
