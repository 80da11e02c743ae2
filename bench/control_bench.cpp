// The control methods and the packetizer next to the least that they can cost: for the
// methods, libdvbpsi's generator alone for the same sections.
//
// The label of a benchmark names its floor.

#include <string>

#include <benchmark/benchmark.h>

#include "control/mux_control_handler.h"
#include "dvb/libdvbpsi.h"
#include "framework/table_converters.h"
#include "tables/section_packetizer.h"
#include "tests/support/pacing_loop.h"
#include "tests/support/random_tables.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint16_t kFirstPmtPid = 0x20;

PAT make_pat() {
    return RandomTables(1).pat(200);
}

// 25 services fill a section.
SDT make_sdt(std::size_t services) {
    return RandomTables(1).sdt(services, 35);
}

// Of one packet.
PMT make_pmt() {
    return RandomTables(1).pmt(1, 150);
}

// The process's muxer, for the life of the object.
struct Muxer : PacingLoop {
    Muxer() : PacingLoop(1000, [](const std::uint8_t*, std::uint32_t) { return 0; }) {}
};

void GeneratePAT(benchmark::State& state) {
    const PatPtr table(t2dPAT(make_pat()));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    for (auto _ : state) {
        const SectionsPtr sections(
            dvbpsi_pat_sections_generate(handle.get(), table.get(), 100));
        benchmark::DoNotOptimize(sections);
    }
}
BENCHMARK(GeneratePAT);

void NewPAT(benchmark::State& state) {
    const Muxer muxer;
    cm_MuxControlSrvHandler handler;
    const PAT pat = make_pat();
    state.SetLabel("GeneratePAT");
    for (auto _ : state) benchmark::DoNotOptimize(handler.NewPAT(pat));
}
BENCHMARK(NewPAT);

// Eight sections of 25 services each, as many as Kestan makes of 200.
void GenerateSDT(benchmark::State& state) {
    const SdtPtr table(t2dSDT(make_sdt(25)));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    for (auto _ : state) {
        for (int i = 0; i < 8; ++i) {
            const SectionsPtr sections(
                dvbpsi_sdt_sections_generate(handle.get(), table.get()));
            benchmark::DoNotOptimize(sections);
        }
    }
}
BENCHMARK(GenerateSDT);

void NewSDTActual(benchmark::State& state) {
    const Muxer muxer;
    cm_MuxControlSrvHandler handler;
    const SDT sdt = make_sdt(200);
    state.SetLabel("GenerateSDT");
    for (auto _ : state) benchmark::DoNotOptimize(handler.NewSDTActual(sdt));
}
BENCHMARK(NewSDTActual);

void GeneratePMT(benchmark::State& state) {
    const PmtPtr table(t2dPMT(make_pmt()));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    for (auto _ : state) {
        const SectionsPtr sections(
            dvbpsi_pmt_sections_generate(handle.get(), table.get()));
        benchmark::DoNotOptimize(sections);
    }
}
BENCHMARK(GeneratePMT);

// Services 1 to state.range(0), on PIDs of their own or on one.
class Services {
public:
    Services(const benchmark::State& state, bool one_pid)
        : count_(static_cast<std::uint16_t>(state.range(0))), one_pid_(one_pid) {
        for (std::uint16_t service = 1; service <= count_; ++service) install(service);
    }

    void install(std::uint16_t service) {
        pmt_.program_number = service;
        benchmark::DoNotOptimize(handler_.NewPMT(pmt_, pid_of(service)));
    }
    void stop(std::uint16_t service) {
        handler_.StopPMT(static_cast<std::int16_t>(service), pid_of(service));
    }
    // In an order in which neighbours are far from one another.
    std::uint16_t next() {
        at_ = (at_ + 4999) % count_;
        return static_cast<std::uint16_t>(at_ + 1);
    }

private:
    [[nodiscard]] std::int16_t pid_of(std::uint16_t service) const {
        return static_cast<std::int16_t>(kFirstPmtPid + (one_pid_ ? 0 : service));
    }

    Muxer muxer_;
    cm_MuxControlSrvHandler handler_;
    PMT pmt_ = make_pmt();
    std::uint16_t count_;
    bool one_pid_;
    std::uint32_t at_ = 0;
};

// A new version of a PMT that plays.
void NewPMT(benchmark::State& state, bool one_pid) {
    Services services(state, one_pid);
    state.SetLabel("GeneratePMT");
    for (auto _ : state) services.install(services.next());
}
BENCHMARK_CAPTURE(NewPMT, own_pid, false)->Arg(8)->Arg(8000);
BENCHMARK_CAPTURE(NewPMT, one_pid, true)->Arg(8)->Arg(8000);

// A service that ends and one that begins.
void StopAndNewPMT(benchmark::State& state, bool one_pid) {
    Services services(state, one_pid);
    state.SetLabel("GeneratePMT");
    for (auto _ : state) {
        const std::uint16_t service = services.next();
        services.stop(service);
        services.install(service);
    }
}
BENCHMARK_CAPTURE(StopAndNewPMT, own_pid, false)->Arg(8)->Arg(8000);
BENCHMARK_CAPTURE(StopAndNewPMT, one_pid, true)->Arg(8)->Arg(8000);

// One section of an SDT.
void Packetize(benchmark::State& state) {
    const SdtPtr table(t2dSDT(make_sdt(25)));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    const SectionsPtr sections(dvbpsi_sdt_sections_generate(handle.get(), table.get()));
    state.SetLabel("AppendPackets");
    for (auto _ : state) {
        benchmark::DoNotOptimize(packetize_sections(sections.get(), 0x11));
    }
}
BENCHMARK(Packetize);

// A string that grows packet by packet to the same length.
void AppendPackets(benchmark::State& state) {
    const SdtPtr table(t2dSDT(make_sdt(25)));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    const SectionsPtr sections(dvbpsi_sdt_sections_generate(handle.get(), table.get()));
    const std::string packets = packetize_sections(sections.get(), 0x11);
    for (auto _ : state) {
        std::string copy;
        for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
            copy.append(packets, at, kTsPacketSize);
        }
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(AppendPackets);

}  // namespace
