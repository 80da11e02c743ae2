// Sends one connection's messages through the whole path: framed transport, protocol,
// processor, handler, streams, pacing loop, and a receiver that checks every packet. At
// the end the receiver must have exactly the sections that the handler accepted.
//
// An input is a run of messages without frames. The frames are made here: a frame of
// wrong length would hide every message behind it.

#include <memory>
#include <string_view>

#include <gtest/gtest.h>
#include <thrift/TOutput.h>
#include <thrift/transport/TBufferTransports.h>

#include "control/control_protocol.h"
#include "control/control_transport.h"
#include "dvb/nanoseconds.h"
#include "tests/support/fake_framework.h"
#include "tests/support/handler_model.h"

namespace {

using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TMemoryBuffer;
using orvel::thrift::ci_module::cm_MuxControlSrvMultiface;
using orvel::thrift::dvb_tables::PMT;

constexpr std::uint32_t kBitrateKbps = 2000;
constexpr std::int64_t kBetweenCallsNs = 10 * kNsPerMs;
constexpr std::int64_t kEachTableOnceNs = 1100 * kNsPerMs;
constexpr std::string_view kMessageBegin("\x80\x01\x00", 3);  // of the binary protocol

// Keeps PMTs off the PIDs of other tables: two streams on one PID break its counters.
class OffFixedPids : public cm_MuxControlSrvMultiface {
public:
    explicit OffFixedPids(const std::shared_ptr<cm_MuxControlSrvIf>& to) { add(to); }

    std::int32_t NewPMT(const PMT& pmt, std::int16_t pid) override {
        return cm_MuxControlSrvMultiface::NewPMT(pmt, pid | 0x20);
    }
};

// Writes each message as a frame. A message begins where the one before it ends.
void write_frames(std::string_view messages, TFramedTransport& to) {
    while (!messages.empty()) {
        const std::string_view message =
            messages.substr(0, messages.find(kMessageBegin, 1));
        to.write(reinterpret_cast<const std::uint8_t*>(message.data()),
                 static_cast<std::uint32_t>(message.size()));
        to.flush();
        messages.remove_prefix(message.size());
    }
}

}  // namespace

// A failed check ends the input as a crash, which libFuzzer keeps.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(throw_on_failure, true);
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fake_framework::clock = {};
    Playout playout(kBitrateKbps);
    Receiver receiver;
    playout.on_datagram = [&](const Datagram& datagram) { receiver.push(datagram); };
    const auto service = std::make_shared<HandlerModel>(receiver);
    orvel::thrift::ci_module::cm_MuxControlSrvProcessor processor(
        std::make_shared<OffFixedPids>(service));
    const auto requests =
        std::make_shared<ControlTransport>(std::make_shared<TMemoryBuffer>());
    write_frames({reinterpret_cast<const char*>(data), size}, *requests);
    const auto in = std::make_shared<ControlProtocol>(requests);
    const auto out = std::make_shared<ControlProtocol>(
        std::make_shared<ControlTransport>(std::make_shared<TMemoryBuffer>()));
    try {
        while (processor.process(in, out, nullptr)) {
            receiver.forget();
            playout.run_for(kBetweenCallsNs);
        }
    } catch (const apache::thrift::TException&) {
        // The server closes the connection.
    }
    receiver.forget();
    playout.run_for(kEachTableOnceNs);
    service->check();
    static_cast<void>(fake_framework::take_log());
    return 0;
}
