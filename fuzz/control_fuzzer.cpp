// One connection's bytes through the whole path: framed transport, protocol, processor,
// handler, streams, pacing loop, and a receiver that checks every packet. In the end,
// what the handler said that it plays must be what the receiver has.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include <thrift/transport/TBufferTransports.h>

#include "control/mux_control_handler.h"
#include "control/mux_server.h"
#include "mux/slot_time.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/wire.h"

using namespace orvel::thrift::dvb_tables;
namespace ci = orvel::thrift::ci_module;

namespace {

constexpr std::uint32_t kBitrateKbps = 2000;
constexpr std::int64_t kBetweenCallsNs = 10 * kNsPerMs;
constexpr std::int64_t kInTheEndNs = 1100 * kNsPerMs;  // each table whole, once
constexpr std::uint16_t kFixedPids[] = {0x00, 0x01, 0x11, 0x14};

// Hands every call on to the handler, and keeps account of what it accepted.
class Recorder final : public ci::cm_MuxControlSrvIf {
public:
    explicit Recorder(Wire& wire) : wire_(wire) {}

    std::int32_t NewPAT(const PAT& pat) override {
        return keep(handler_.NewPAT(pat), pat, pat_, 0x00);
    }
    std::int32_t NewCAT(const CAT& cat) override {
        return keep(handler_.NewCAT(cat), cat, cat_, 0x01);
    }
    std::int32_t NewSDTActual(const SDT& sdt) override {
        return keep(handler_.NewSDTActual(sdt), sdt, sdt_, 0x11);
    }
    void ClearCAT() override {
        handler_.ClearCAT();
        cat_.reset();
    }
    void ClearAllTables() override {
        handler_.ClearAllTables();
        pat_.reset();
        cat_.reset();
        sdt_.reset();
        while (!pids_.empty()) forget_pmt(pids_.begin()->first);
    }

    std::int32_t NewPMT(const PMT& pmt, std::int16_t pid_bits) override {
        auto pid = static_cast<std::uint16_t>(pid_bits);
        // Two streams on one PID break its counters, whatever they carry.
        if (std::count(std::begin(kFixedPids), std::end(kFixedPids), pid) > 0) pid += 64;
        const std::int32_t result = handler_.NewPMT(pmt, static_cast<std::int16_t>(pid));
        if (result < 0) return result;
        const auto service = static_cast<std::uint16_t>(pmt.program_number);
        if (pids_.emplace(service, pid).first->second != pid) return result;
        return keep(result, pmt, pmts_[service], pid);
    }
    void StopPMT(std::int16_t service, std::int16_t pid) override {
        handler_.StopPMT(service, pid);
        forget_pmt(static_cast<std::uint16_t>(service));
    }

    void newScramblingConfig(const ci::ScramblingConfig& config) override {
        handler_.newScramblingConfig(config);
    }
    void EMM(const ci::EMMData& emm) override { handler_.EMM(emm); }

    // The receiver passes over tables that are not in force yet and over a PAT without
    // programs, and finds no PMT through program 0, which is the network's.
    void check() const {
        const Multiplex seen = wire_.tables(pids_);
        if (pat_ && !pat_->programs.empty()) check(pat_, seen.pat);
        check(cat_, seen.cat);
        check(sdt_, seen.sdt);
        for (const auto& [service, pmt] : pmts_) {
            const auto is_it = [number = service](const PmtOnPid& one) {
                return one.pmt.program_number == number;
            };
            const auto found = std::find_if(seen.pmts.begin(), seen.pmts.end(), is_it);
            if (service == 0 || !pmt->current_next_indicator) continue;
            ASSERT_NE(found, seen.pmts.end()) << "service " << service;
            ASSERT_EQ(found->pmt, *pmt);
        }
    }

private:
    template <typename Table>
    std::int32_t keep(std::int32_t result, const Table& table, std::optional<Table>& kept,
                      std::uint16_t pid) {
        if (result < 0) return result;
        kept = table;
        kept->version_number = result;
        wire_.allow_break(pid);
        return result;
    }

    void forget_pmt(std::uint16_t service) {
        const auto known = pids_.find(service);
        if (known == pids_.end()) return;
        const std::uint16_t pid = known->second;
        pids_.erase(known);
        pmts_.erase(service);
        wire_.allow_break(pid);
        const auto is_on_pid = [pid](const auto& other) { return other.second == pid; };
        if (std::none_of(pids_.begin(), pids_.end(), is_on_pid)) {
            wire_.expect_new_stream(pid);
        }
    }

    template <typename Table>
    static void check(const std::optional<Table>& played,
                      const std::optional<Table>& seen) {
        if (played && !played->current_next_indicator) return;
        ASSERT_EQ(seen, played);
    }

    Wire& wire_;
    cm_MuxControlSrvHandler handler_;
    std::optional<PAT> pat_;
    std::optional<CAT> cat_;
    std::optional<SDT> sdt_;
    std::map<std::uint16_t, std::uint16_t> pids_;       // by service
    std::map<std::uint16_t, std::optional<PMT>> pmts_;  // by service
};

// The frames of an input; what follows the last whole one is left out.
std::vector<std::string> frames_of(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> frames;
    while (size >= 4) {
        std::size_t length = 0;
        for (int i = 0; i < 4; ++i) length = length << 8 | data[i];
        if (length > size - 4) break;
        frames.emplace_back(data + 4, data + 4 + length);
        data += 4 + length;
        size -= 4 + length;
    }
    return frames;
}

std::size_t write_frames(const std::vector<std::string>& frames, std::uint8_t* data,
                         std::size_t max_size) {
    std::size_t size = 0;
    for (const std::string& frame : frames) {
        if (size + 4 + frame.size() > max_size) break;
        for (int shift = 24; shift >= 0; shift -= 8) {
            data[size++] = static_cast<std::uint8_t>(frame.size() >> shift);
        }
        std::copy(frame.begin(), frame.end(), data + size);
        size += frame.size();
    }
    return size;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size,
                                        std::size_t max_size);

// Mostly mutates, doubles or drops one frame and keeps the lengths of all right: a wrong
// length hides every message behind it.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
    std::minstd_rand random(seed);
    std::vector<std::string> frames = frames_of(data, size);
    const unsigned choice = random() % 16;
    if (frames.empty() || choice == 0) return LLVMFuzzerMutate(data, size, max_size);
    std::string& frame = frames[random() % frames.size()];
    if (choice == 1) {
        std::swap(frame, frames.back());
        frames.pop_back();
    } else if (choice == 2) {
        frames.push_back(std::string(frame));
    } else {
        const std::size_t length = frame.size();
        frame.resize(length + 64);
        frame.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(frame.data()),
                                      length, frame.size()));
    }
    return write_frames(frames, data, max_size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace apache::thrift::transport;
    fake_framework::clock = {};
    Playout playout(kBitrateKbps);
    Wire wire;
    playout.on_datagram = [&](const Datagram& datagram) { wire.push(datagram.bytes); };
    const auto recorder = std::make_shared<Recorder>(wire);
    ci::cm_MuxControlSrvProcessor processor(recorder);
    const auto factory = mux_protocol_factory();
    const auto request = std::make_shared<TMemoryBuffer>(
        const_cast<std::uint8_t*>(data), static_cast<std::uint32_t>(size));
    const auto in = factory->getProtocol(std::make_shared<TFramedTransport>(request));
    const auto out = factory->getProtocol(
        std::make_shared<TFramedTransport>(std::make_shared<TMemoryBuffer>()));
    try {
        while (processor.process(in, out, nullptr)) playout.run_for(kBetweenCallsNs);
    } catch (const apache::thrift::TException&) {
        // The server closes the connection.
    }
    wire.forget();
    playout.run_for(kInTheEndNs);
    recorder->check();
    static_cast<void>(fake_framework::take_log());
    return 0;
}
