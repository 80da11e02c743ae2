// A packet that is due, of each kind of stream, beside the least that it can cost: a copy
// of 188 bytes under an uncontended mutex.
//
// The label of a benchmark names its floor.

#include <array>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/locked_packets.h"
#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"
#include "framework/clock.h"
#include "tables/simple_table.h"
#include "tables/table_carrousel.h"
#include "tables/tdt_table.h"

namespace {

constexpr std::uint32_t kPeriodMs = 200;

std::string table_of(std::size_t packets) {
    std::string packet(kTsPacketSize, '\0');
    packet[0] = kSyncByte;
    packet[1] = kPayloadUnitStart;
    packet[3] = kHasPayload;
    std::string table;
    for (std::size_t i = 0; i < packets; ++i) table += packet;
    return table;
}

void CopyUnderMutex(benchmark::State& state) {
    LockedPackets packets(state.range(0));
    std::array<std::uint8_t, kTsPacketSize> dst;
    for (auto _ : state) {
        packets.copy_next(dst.data());
        benchmark::DoNotOptimize(packets);
        benchmark::DoNotOptimize(dst);
    }
}
BENCHMARK(CopyUnderMutex)->Arg(1)->Arg(8)->Arg(200)->Arg(8000);

void CopyUnderMutexAndClock(benchmark::State& state) {
    LockedPackets packets(1);
    std::array<std::uint8_t, kTsPacketSize> dst;
    for (auto _ : state) {
        packets.copy_next(dst.data());
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
    for (auto _ : state) {
        if (!stream.next_packet(dst.data(), slot_time_ns)) {
            return state.SkipWithError("nothing was due");
        }
        slot_time_ns += step_ns;
        benchmark::DoNotOptimize(dst);
    }
}

void SimpleTablePacket(benchmark::State& state) {
    SimpleTable stream(0, kPeriodMs * kNsPerMs);
    std::string table = table_of(5);
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

// At the pace at which the carrousel sends, which is a little faster than the sub-tables'
// periods ask for.
void TableCarrouselPacket(benchmark::State& state) {
    TableCarrousel stream(0x20);
    const auto sub_tables = static_cast<std::uint32_t>(state.range(0));
    for (std::uint32_t i = 0; i < sub_tables; ++i) {
        stream.add_subtable(new SubTable(table_of(1), kPeriodMs));
    }
    const std::uint64_t bitrate_sum =
        sub_tables * std::uint64_t{SubTable(table_of(1), kPeriodMs).bitrate};
    state.SetLabel("CopyUnderMutex/" + std::to_string(sub_tables));
    play(state, stream,
         static_cast<std::int64_t>(kTsPacketBits * kNsPerSecond / bitrate_sum));
}
BENCHMARK(TableCarrouselPacket)->Arg(1)->Arg(8)->Arg(200)->Arg(8000);

}  // namespace
