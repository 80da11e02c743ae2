// The bytes that control processes in service send and expect. A change of the service
// definition that these tests see breaks all of them.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <boost/algorithm/hex.hpp>
#include <gmock/gmock.h>
#include <thrift/TToString.h>
#include <thrift/transport/TBufferTransports.h>

#include "control/control_protocol.h"
#include "control/control_transport.h"
#include "tests/support/cases.h"
#include "thrift/cm_MuxControlSrv.h"
#include "thrift/cm_MuxNotifySrv.h"

using namespace orvel::thrift::ci_module;
using namespace orvel::thrift::dvb_tables;

namespace {

using apache::thrift::to_string;
using apache::thrift::transport::TMemoryBuffer;

// Keeps what it has read of a call.
struct Recorder final : cm_MuxControlSrvIf, cm_MuxNotifySrvIf {
    void ClearAllTables() override { keep("ClearAllTables"); }
    std::int32_t NewPAT(const PAT& pat) override { return keep(to_string(pat)); }
    std::int32_t NewCAT(const CAT& cat) override { return keep(to_string(cat)); }
    void ClearCAT() override { keep("ClearCAT"); }
    std::int32_t NewSDTActual(const SDT& sdt) override { return keep(to_string(sdt)); }
    std::int32_t NewPMT(const PMT& pmt, std::int16_t pid) override {
        return keep(to_string(pmt) + " on PID " + to_string(pid));
    }
    void StopPMT(std::int16_t service_id, std::int16_t pid) override {
        keep("service " + to_string(service_id) + " on PID " + to_string(pid));
    }
    void newScramblingConfig(const ScramblingConfig& config) override {
        keep(to_string(config));
    }
    void EMM(const EMMData& emm) override { keep(to_string(emm)); }
    void NotifyKestanStarted() override { keep("NotifyKestanStarted"); }

    std::int32_t keep(const std::string& arguments) {
        read = arguments;
        return 0x12;
    }

    std::string read;
};

// Returns the bytes of hexadecimal digits; blanks between them do not count.
std::string bytes(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    return boost::algorithm::unhex(hex);
}

std::string sized(const std::string& text) {
    return bytes("0000") + static_cast<char>(text.size() >> 8) +
           static_cast<char>(text.size()) + text;
}

// Returns a frame with one message. `kind` is 01 for a call and 02 for a reply.
std::string frame(const std::string& kind, const std::string& method,
                  const std::string& fields) {
    return sized(bytes("800100" + kind) + sized(method) + bytes("00000000" + fields));
}

std::shared_ptr<ControlProtocol> protocol_on(
    const std::shared_ptr<TMemoryBuffer>& bytes) {
    return std::make_shared<ControlProtocol>(std::make_shared<ControlTransport>(bytes));
}

template <typename Processor>
std::string answer(const std::shared_ptr<Recorder>& service, const std::string& request) {
    const auto in = std::make_shared<TMemoryBuffer>();
    const auto out = std::make_shared<TMemoryBuffer>();
    in->write(reinterpret_cast<const std::uint8_t*>(request.data()),
              static_cast<std::uint32_t>(request.size()));
    EXPECT_NO_THROW(
        Processor(service).process(protocol_on(in), protocol_on(out), nullptr));
    return out->getBufferAsString();
}

TEST(WireContract, HoldsForEachFieldOfEachCall) {
    for (const auto& [call, read] : cases_in("calls.txt")) {
        SCOPED_TRACE(call);
        const std::string method = call.substr(0, call.find(' '));
        const std::string request = frame("01", method, call.substr(method.size()));
        const bool has_result = method.rfind("New", 0) == 0;
        const auto service = std::make_shared<Recorder>();
        EXPECT_EQ(answer<cm_MuxControlSrvProcessor>(service, request),
                  frame("02", method, has_result ? "08 0000 00000012 00" : "00"));
        EXPECT_EQ(service->read, read);
    }
}

// The generated clients leave out an optional field unless its sender sets a flag.
TEST(WireContract, HasNoOptionalFields) {
    std::ostringstream fields;
    fields << PAT() << PATProgram() << CAT() << Descriptor() << SDT() << SDTService()
           << PMT() << PMTStream() << ScramblingConfig() << ScrambledService()
           << EMMData();
    EXPECT_THAT(fields.str(), testing::Not(testing::HasSubstr("<null>")));
}

TEST(WireContract, HoldsForTheStartNotification) {
    const std::string request = frame("01", "NotifyKestanStarted", "00");
    const auto control_process = std::make_shared<Recorder>();
    EXPECT_EQ(answer<cm_MuxNotifySrvProcessor>(control_process, request),
              frame("02", "NotifyKestanStarted", "00"));
    EXPECT_EQ(control_process->read, "NotifyKestanStarted");
    const auto sent = std::make_shared<TMemoryBuffer>();
    cm_MuxNotifySrvClient(protocol_on(sent)).send_NotifyKestanStarted();
    EXPECT_EQ(sent->getBufferAsString(), request);
}

}  // namespace
