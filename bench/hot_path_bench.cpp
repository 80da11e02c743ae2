// The hot path next to the least that it can cost: a packet that is due, of each kind of
// stream; a polling pass of the pacing loop over many streams, with nothing due and with
// a packet of every stream due.
//
// The label of a benchmark names its floor.

#include <array>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "dvb/nanoseconds.h"
#include "framework/clock.h"
#include "tables/simple_table.h"
#include "tables/table_carrousel.h"
#include "tables/tdt_table.h"
#include "tests/support/named_packets.h"
#include "tests/support/pacing_loop.h"

namespace {

// The floor for streams that hand out packets: it copies them in turn under an
// uncontended mutex. Each packet lies in separate memory, as much as a stream or a
// sub-table takes.
class LockedPackets {
public:
    explicit LockedPackets(std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) {
            packets_.push_back(std::make_unique<Packet>());
        }
    }

    // Copies a packet under one mutex for all packets, or under the mutex of the packet.
    void copy_next(std::uint8_t* dst, bool under_own_mutex) {
        Packet& packet = *packets_[next_];
        const std::lock_guard lock(under_own_mutex ? packet.mutex : mutex_);
        std::memcpy(dst, packet.data.data(), kTsPacketSize);
        next_ = next_ + 1 == packets_.size() ? 0 : next_ + 1;
    }

    // Takes every packet's mutex once.
    void lock_each() {
        for (const auto& packet : packets_) {
            const std::lock_guard lock(packet->mutex);
            ++packet->locked;
        }
    }

private:
    struct Packet {
        std::string data{std::string(kTsPacketSize, '\0')};
        std::uint64_t locked = 0;
        std::uint64_t rest[3] = {};
        std::mutex mutex;
    };

    std::vector<std::unique_ptr<Packet>> packets_;
    std::size_t next_ = 0;
    std::mutex mutex_;
};

constexpr std::uint32_t kPeriodMs = 200;

void CopyUnderMutex(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    std::array<std::uint8_t, kTsPacketSize> dst;
    for ([[maybe_unused]] auto _ : state) {
        packets.copy_next(dst.data(), false);
        benchmark::DoNotOptimize(packets);
        benchmark::DoNotOptimize(dst);
    }
}
BENCHMARK(CopyUnderMutex)->Arg(1)->Arg(8)->Arg(200)->Arg(8000);

void CopyUnderMutexAndClock(benchmark::State& state) {
    LockedPackets packets(1);
    std::array<std::uint8_t, kTsPacketSize> dst;
    for ([[maybe_unused]] auto _ : state) {
        packets.copy_next(dst.data(), false);
        benchmark::DoNotOptimize(GetUTCTime());
        benchmark::DoNotOptimize(packets);
        benchmark::DoNotOptimize(dst);
    }
}
BENCHMARK(CopyUnderMutexAndClock);

// Asks the stream at steps of `step_ns`, at each of which it has a packet due.
void play(benchmark::State& state, muxed_stream& stream, std::int64_t step_ns) {
    std::array<std::uint8_t, kTsPacketSize> dst;
    std::int64_t slot_time_ns = steady_now_ns();
    for ([[maybe_unused]] auto _ : state) {
        if (!stream.next_packet(dst.data(), slot_time_ns)) {
            return state.SkipWithError("nothing was due");
        }
        slot_time_ns += step_ns;
        benchmark::DoNotOptimize(dst);
    }
}

void SimpleTablePacket(benchmark::State& state) {
    SimpleTable stream(0, kPeriodMs * kNsPerMs);
    std::string table = named_packets('A', {5});
    stream.replace_packets(table);
    state.SetLabel("CopyUnderMutex/1");
    play(state, stream, kPeriodMs * kNsPerMs / 5);
}
BENCHMARK(SimpleTablePacket);

void TDTTablePacket(benchmark::State& state) {
    TDTTable stream;
    state.SetLabel("CopyUnderMutexAndClock");
    play(state, stream, kNsPerSecond);
}
BENCHMARK(TDTTablePacket);

// Asks at the pace at which the carrousel sends. It is a little faster than the periods
// of the sub-tables need.
void TableCarrouselPacket(benchmark::State& state) {
    TableCarrousel stream(0x20);
    const auto sub_tables = static_cast<std::uint32_t>(state.range(0));
    std::uint64_t bitrate_sum = 0;
    for (std::uint32_t i = 0; i < sub_tables; ++i) {
        auto* const sub = new SubTable(named_packets('A', {1}), kPeriodMs);
        bitrate_sum += sub->bitrate;
        stream.add_subtable(sub);
    }
    state.SetLabel("CopyUnderMutex/" + std::to_string(sub_tables));
    play(state, stream,
         static_cast<std::int64_t>(kTsPacketBits * kNsPerSecond / bitrate_sum));
}
BENCHMARK(TableCarrouselPacket)->Arg(1)->Arg(8)->Arg(200)->Arg(8000);

constexpr std::uint32_t kPacketsPerPass = 7;

benchmark::State* running = nullptr;

// Passes over SimpleTables with a packet due always or, after the first, never. Slots of
// 15 ms: the slot clock is always ahead and each pass ends in a sleep.
void run_passes(benchmark::State& state, bool always_due) {
    const PacingLoop loop(100, [](const std::uint8_t* data, std::uint32_t length) {
        benchmark::DoNotOptimize(data);
        return static_cast<int>(length);
    });
    constexpr std::int64_t for_years = std::numeric_limits<std::int64_t>::max() / 4;
    std::vector<std::unique_ptr<SimpleTable>> streams;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        streams.push_back(std::make_unique<SimpleTable>(0, always_due ? 0 : for_years));
        std::string packet = named_packets('A', {1});
        streams.back()->replace_packets(packet);
        if (!always_due) next_name(*streams.back(), steady_now_ns());
        muxer_add(*streams.back());
    }
    running = &state;
    PacingLoop::run();
    running = nullptr;
    for (const auto& stream : streams) muxer_remove(*stream);
}

void PassWithNothingDue(benchmark::State& state) {
    state.SetLabel("LockEach/" + std::to_string(state.range(0)));
    run_passes(state, false);
}
BENCHMARK(PassWithNothingDue)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void PassWithAllDue(benchmark::State& state) {
    state.SetLabel("CopySeven/" + std::to_string(state.range(0)));
    run_passes(state, true);
}
BENCHMARK(PassWithAllDue)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void LockEach(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        packets.lock_each();
        benchmark::DoNotOptimize(steady_now_ns());
    }
}
BENCHMARK(LockEach)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

void CopySeven(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    std::array<std::uint8_t, kPacketsPerPass * kTsPacketSize> datagram;
    for ([[maybe_unused]] auto _ : state) {
        for (std::uint32_t i = 0; i < kPacketsPerPass; ++i) {
            packets.copy_next(datagram.data() + i * kTsPacketSize, true);
        }
        benchmark::DoNotOptimize(datagram);
        benchmark::DoNotOptimize(steady_now_ns());
    }
}
BENCHMARK(CopySeven)->Arg(10)->Arg(100)->Arg(1000)->Arg(8000);

}  // namespace

// The pacing loop sleeps at the end of each pass.
extern "C" int __wrap_nanosleep(const timespec* /*duration*/, timespec* /*remaining*/) {
    if (running != nullptr && !running->KeepRunning()) throw EndOfRun();
    return 0;
}

// Starts a second thread, as in the daemon: in a process that has never had one, the
// mutexes of the C library cost only half.
int main(int argc, char** argv) {
    std::promise<void> ended;
    const auto second =
        std::async(std::launch::async, [&] { ended.get_future().wait(); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    ended.set_value();
}
