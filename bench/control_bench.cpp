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
SDT make_sdt(std::size_t services) {  // 25 of them fill a section
    return RandomTables(1).sdt(services, 35);
}
PMT make_pmt() {  // of one packet
    return RandomTables(1).pmt(1, 150);
}

// The process's muxer, for the life of the object.
struct Muxer : PacingLoop {
    Muxer() : PacingLoop(1000, [](const std::uint8_t*, std::uint32_t) { return 0; }) {}
};

// Makes a table's sections `times` times, with libdvbpsi's generator alone.
template <typename Table, typename Make>
void generate(benchmark::State& state, const Table& table, Make make, int times = 1) {
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    for ([[maybe_unused]] auto _ : state) {
        for (int i = 0; i < times; ++i) {
            const SectionsPtr sections(make(handle.get(), table.get()));
            benchmark::DoNotOptimize(sections);
        }
    }
}

dvbpsi_psi_section_t* pat_sections(dvbpsi_t* handle, dvbpsi_pat_t* pat) {
    return dvbpsi_pat_sections_generate(handle, pat, 100);
}

BENCHMARK_CAPTURE(generate, PAT, PatPtr(t2dPAT(make_pat())), pat_sections)
    ->Name("GeneratePAT");
// Eight sections of 25 services each, as many as Kestan makes of 200.
BENCHMARK_CAPTURE(generate, SDT, SdtPtr(t2dSDT(make_sdt(25))),
                  dvbpsi_sdt_sections_generate, 8)
    ->Name("GenerateSDT");
BENCHMARK_CAPTURE(generate, PMT, PmtPtr(t2dPMT(make_pmt())), dvbpsi_pmt_sections_generate)
    ->Name("GeneratePMT");

// Replaces a table that plays.
template <typename Table, typename Method>
void replace(benchmark::State& state, const char* floor, Method method,
             const Table& table) {
    const Muxer muxer;
    cm_MuxControlSrvHandler handler;
    state.SetLabel(floor);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize((handler.*method)(table));
}

BENCHMARK_CAPTURE(replace, PAT, "GeneratePAT", &cm_MuxControlSrvHandler::NewPAT,
                  make_pat())
    ->Name("NewPAT");
BENCHMARK_CAPTURE(replace, SDT, "GenerateSDT", &cm_MuxControlSrvHandler::NewSDTActual,
                  make_sdt(200))
    ->Name("NewSDTActual");

// Replaces the PMTs of services 1 to state.range(0), which are on separate PIDs or on
// one. If `stops`, each service is stopped before it gets its new PMT.
void replace_pmts(benchmark::State& state, bool one_pid, bool stops) {
    const Muxer muxer;
    cm_MuxControlSrvHandler handler;
    PMT pmt = make_pmt();
    const auto pid_of = [=](int service) {
        return static_cast<std::int16_t>(kFirstPmtPid + (one_pid ? 0 : service));
    };
    const auto install = [&](int service) {
        pmt.program_number = service;
        benchmark::DoNotOptimize(handler.NewPMT(pmt, pid_of(service)));
    };
    const auto services = static_cast<int>(state.range(0));
    for (int service = 1; service <= services; ++service) install(service);
    int service = 1;
    state.SetLabel("GeneratePMT");
    for ([[maybe_unused]] auto _ : state) {
        service = (service + 4998) % services + 1;  // far from the one before
        if (stops) handler.StopPMT(static_cast<std::int16_t>(service), pid_of(service));
        install(service);
    }
}

void NewPMT(benchmark::State& state, bool one_pid) {
    replace_pmts(state, one_pid, false);
}
BENCHMARK_CAPTURE(NewPMT, own_pid, false)->Arg(8)->Arg(8000);
BENCHMARK_CAPTURE(NewPMT, one_pid, true)->Arg(8)->Arg(8000);

void StopAndNewPMT(benchmark::State& state, bool one_pid) {
    replace_pmts(state, one_pid, true);
}
BENCHMARK_CAPTURE(StopAndNewPMT, own_pid, false)->Arg(8)->Arg(8000);
BENCHMARK_CAPTURE(StopAndNewPMT, one_pid, true)->Arg(8)->Arg(8000);

// Returns one section of an SDT.
SectionsPtr sdt_section() {
    const SdtPtr table(t2dSDT(make_sdt(25)));
    const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));
    return SectionsPtr(dvbpsi_sdt_sections_generate(handle.get(), table.get()));
}

void Packetize(benchmark::State& state) {
    const SectionsPtr section = sdt_section();
    state.SetLabel("AppendPackets");
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(packetize_sections(section.get(), 0x11));
    }
}
BENCHMARK(Packetize);

// Appends packets one by one to a string of the same length.
void AppendPackets(benchmark::State& state) {
    const std::string packets = packetize_sections(sdt_section().get(), 0x11);
    for ([[maybe_unused]] auto _ : state) {
        std::string copy;
        for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
            copy.append(packets, at, kTsPacketSize);
        }
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(AppendPackets);

}  // namespace
