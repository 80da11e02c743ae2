// One connection's bytes through the whole path: framed transport, protocol, processor,
// handler, streams, pacing loop, and a receiver that checks every packet. In the end,
// what the handler said that it plays must be what the receiver has.

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <thrift/transport/TBufferTransports.h>

#include "control/mux_server.h"
#include "mux/slot_time.h"
#include "tests/support/accountant.h"
#include "tests/support/fake_framework.h"
#include "tests/support/playout.h"
#include "tests/support/wire.h"

namespace {

constexpr std::uint32_t kBitrateKbps = 2000;
constexpr std::int64_t kBetweenCallsNs = 10 * kNsPerMs;
constexpr std::int64_t kInTheEndNs = 1100 * kNsPerMs;  // each table whole, once
constexpr std::int16_t kFixedPids[] = {0x00, 0x01, 0x11, 0x14};

// Two streams on one PID break its counters, whatever they carry: PMTs go elsewhere.
class OffFixedPids : public orvel::thrift::ci_module::cm_MuxControlSrvMultiface {
public:
    explicit OffFixedPids(const std::shared_ptr<cm_MuxControlSrvIf>& service) {
        add(service);
    }

    std::int32_t NewPMT(const orvel::thrift::dvb_tables::PMT& pmt,
                        std::int16_t pid) override {
        if (std::count(std::begin(kFixedPids), std::end(kFixedPids), pid) > 0) pid += 64;
        return cm_MuxControlSrvMultiface::NewPMT(pmt, pid);
    }
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
    const auto service = std::make_shared<Accountant>(wire);
    orvel::thrift::ci_module::cm_MuxControlSrvProcessor processor(
        std::make_shared<OffFixedPids>(service));
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
    service->check();
    static_cast<void>(fake_framework::take_log());
    return 0;
}
