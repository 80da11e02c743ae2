// The bytes that control processes in service send and expect, field by field. A change
// of the service definition that these tests see breaks all of them.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <thrift/transport/TBufferTransports.h>

#include "control/control_protocol.h"
#include "control/control_transport.h"
#include "thrift/cm_MuxControlSrv.h"
#include "thrift/cm_MuxNotifySrv.h"

using namespace orvel::thrift::ci_module;
using namespace orvel::thrift::dvb_tables;

namespace {

using apache::thrift::TProcessor;
using apache::thrift::transport::TMemoryBuffer;

constexpr std::int32_t kResult = 0x12;

// Returns the bytes of hexadecimal digits; blanks between them do not count.
std::string bytes(const std::string& hex) {
    std::string digits, result;
    for (const char c : hex) {
        if (c != ' ') digits += c;
    }
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        result += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    }
    return result;
}

std::string length_of(const std::string& text) {
    return bytes("000000") + static_cast<char>(text.size());
}

// Returns a frame with one message. `kind` is 01 for a call and 02 for a reply.
std::string frame(const std::string& kind, const std::string& method,
                  const std::string& fields) {
    const std::string message = bytes("8001 00" + kind) + length_of(method) + method +
                                bytes("00000000") + bytes(fields);
    const auto size = static_cast<std::uint16_t>(message.size());
    return bytes("0000") + static_cast<char>(size >> 8) + static_cast<char>(size) +
           message;
}

std::shared_ptr<ControlProtocol> protocol_on(
    const std::shared_ptr<TMemoryBuffer>& bytes) {
    return std::make_shared<ControlProtocol>(std::make_shared<ControlTransport>(bytes));
}

std::string answer(TProcessor& processor, const std::string& request) {
    const auto in = std::make_shared<TMemoryBuffer>();
    const auto out = std::make_shared<TMemoryBuffer>();
    in->write(reinterpret_cast<const std::uint8_t*>(request.data()),
              static_cast<std::uint32_t>(request.size()));
    processor.process(protocol_on(in), protocol_on(out), nullptr);
    return out->getBufferAsString();
}

// Keeps the arguments of a call.
struct Recorder final : cm_MuxControlSrvIf {
    void ClearAllTables() override { called = "ClearAllTables"; }
    std::int32_t NewPAT(const PAT& table) override { return pat = table, kResult; }
    std::int32_t NewCAT(const CAT& table) override { return cat = table, kResult; }
    void ClearCAT() override { called = "ClearCAT"; }
    std::int32_t NewSDTActual(const SDT& table) override { return sdt = table, kResult; }
    std::int32_t NewPMT(const PMT& table, std::int16_t on) override {
        return pmt = table, pid = on, kResult;
    }
    void StopPMT(std::int16_t id, std::int16_t on) override { service = id, pid = on; }
    void newScramblingConfig(const ScramblingConfig& value) override { config = value; }
    void EMM(const EMMData& value) override { emm = value; }

    std::string called;
    PAT pat;
    CAT cat;
    SDT sdt;
    PMT pmt;
    std::int16_t service = 0, pid = 0;
    ScramblingConfig config;
    EMMData emm;
};

class WireContract : public testing::Test {
protected:
    // The service must read `fields` as the call's arguments and answer `result`, and the
    // generated client must send the same bytes.
    void expect(const std::string& method, const std::string& fields,
                const std::string& result,
                const std::function<void(cm_MuxControlSrvClient&)>& send) {
        const std::string request = frame("01", method, fields);
        cm_MuxControlSrvProcessor processor(called_);
        EXPECT_EQ(answer(processor, request), frame("02", method, result)) << method;
        const auto sent = std::make_shared<TMemoryBuffer>();
        cm_MuxControlSrvClient client(protocol_on(sent));
        send(client);
        EXPECT_EQ(sent->getBufferAsString(), request) << method;
    }

    std::shared_ptr<Recorder> called_ = std::make_shared<Recorder>();
};

constexpr const char* kNothing = "00";
constexpr const char* kVersion = "08 0000 00000012 00";

Descriptor descriptor(std::int32_t tag, const std::string& data) {
    Descriptor result;
    result.tag = tag;
    result.data = data;
    return result;
}

TEST_F(WireContract, Pat) {
    PAT pat;
    pat.transport_stream_id = 0x1234;
    pat.version_number = 5;
    pat.current_next_indicator = false;
    pat.programs.resize(2);
    pat.programs[0].pid = 0x1FFF;
    pat.programs[1].program_number = 0x8001;
    pat.programs[1].pid = 0x100;
    expect("NewPAT",
           "0C 0001"                                      // pat
           "  08 0001 00001234"                           // transport_stream_id
           "  08 0002 00000005"                           // version_number
           "  02 0003 00"                                 // current_next_indicator
           "  0F 0004 0C 00000002"                        // programs
           "    08 0001 00000000 08 0002 00001FFF 00"     // program_number, pid
           "    08 0001 00008001 08 0002 00000100 00 00"  //
           "00",
           kVersion, [&](auto& client) { client.send_NewPAT(pat); });
    EXPECT_EQ(called_->pat, pat);
}

TEST_F(WireContract, Cat) {
    CAT cat;
    cat.version_number = 6;
    cat.current_next_indicator = false;
    cat.descriptors = {descriptor(9, "abc"), descriptor(0x80, "")};
    expect("NewCAT",
           "0C 0001"                                       // cat
           "  08 0001 00000006"                            // version_number
           "  02 0002 00"                                  // current_next_indicator
           "  0F 0003 0C 00000002"                         // descriptors
           "    08 0001 00000009 0B 0002 00000003 616263"  // tag, data
           "    00"                                        //
           "    08 0001 00000080 0B 0002 00000000 00 00"   //
           "00",
           kVersion, [&](auto& client) { client.send_NewCAT(cat); });
    EXPECT_EQ(called_->cat, cat);
}

// Each flag is set in one service.
TEST_F(WireContract, Sdt) {
    SDT sdt;
    sdt.transport_stream_id = 1;
    sdt.original_network_id = 2;
    sdt.version_number = 3;
    sdt.current_next_indicator = false;
    sdt.services.resize(3);
    sdt.services[0].service_id = 0x101;
    sdt.services[0].eit_schedule_flag = true;
    sdt.services[0].running_status = 4;
    sdt.services[1].service_id = 0x102;
    sdt.services[1].eit_present_following_flag = true;
    sdt.services[2].service_id = 0x103;
    sdt.services[2].free_ca_mode = true;
    sdt.services[2].descriptors = {descriptor(0x48, "x")};
    expect("NewSDTActual",
           "0C 0001"                     // sdt
           "  08 0001 00000001"          // transport_stream_id
           "  08 0002 00000002"          // original_network_id
           "  08 0003 00000003"          // version_number
           "  02 0004 00"                // current_next_indicator
           "  0F 0005 0C 00000003"       // services
           "    08 0001 00000101"        // service_id
           "    02 0002 01"              // eit_schedule_flag
           "    02 0003 00"              // eit_present_following_flag
           "    08 0004 00000004"        // running_status
           "    02 0005 00"              // free_ca_mode
           "    0F 0006 0C 00000000 00"  // descriptors
           "    08 0001 00000102 02 0002 00 02 0003 01 08 0004 00000000 02 0005 00"
           "    0F 0006 0C 00000000 00"
           "    08 0001 00000103 02 0002 00 02 0003 00 08 0004 00000000 02 0005 01"
           "    0F 0006 0C 00000001 08 0001 00000048 0B 0002 00000001 78 00 00 00"
           "00",
           kVersion, [&](auto& client) { client.send_NewSDTActual(sdt); });
    EXPECT_EQ(called_->sdt, sdt);
}

TEST_F(WireContract, Pmt) {
    PMT pmt;
    pmt.program_number = 0x8001;
    pmt.version_number = 7;
    pmt.current_next_indicator = false;
    pmt.pcr_pid = 0x1FFE;
    pmt.descriptors = {descriptor(9, "p")};
    pmt.streams.resize(1);
    pmt.streams[0].stream_type = 0x1B;
    pmt.streams[0].elementary_pid = 0x200;
    pmt.streams[0].descriptors = {descriptor(0x52, "s")};
    expect("NewPMT",
           "0C 0001"                // pmt
           "  08 0001 00008001"     // program_number
           "  08 0002 00000007"     // version_number
           "  02 0003 00"           // current_next_indicator
           "  08 0004 00001FFE"     // pcr_pid
           "  0F 0005 0C 00000001"  // descriptors
           "    08 0001 00000009 0B 0002 00000001 70 00"
           "  0F 0006 0C 00000001"    // streams
           "    08 0001 0000001B"     // stream_type
           "    08 0002 00000200"     // elementary_pid
           "    0F 0003 0C 00000001"  // descriptors
           "      08 0001 00000052 0B 0002 00000001 73 00 00 00"
           "06 0002 1ABC"  // pid
           "00",
           kVersion, [&](auto& client) { client.send_NewPMT(pmt, 0x1ABC); });
    EXPECT_EQ(called_->pmt, pmt);
    EXPECT_EQ(called_->pid, 0x1ABC);
}

TEST_F(WireContract, Withdrawals) {
    expect("StopPMT", "06 0001 8001 06 0002 1FFF 00", kNothing,  // service_id, pid
           [&](auto& client) { client.send_StopPMT(-0x7FFF, 0x1FFF); });
    EXPECT_EQ(called_->service, -0x7FFF);
    EXPECT_EQ(called_->pid, 0x1FFF);
    expect("ClearCAT", kNothing, kNothing, [](auto& client) { client.send_ClearCAT(); });
    EXPECT_EQ(called_->called, "ClearCAT");
    expect("ClearAllTables", kNothing, kNothing,
           [](auto& client) { client.send_ClearAllTables(); });
    EXPECT_EQ(called_->called, "ClearAllTables");
}

TEST_F(WireContract, ConditionalAccess) {
    ScramblingConfig config;
    config.services.resize(1);
    config.services[0].service_id = 0x101;
    config.services[0].pids = {0x200, 0x201};
    config.services[0].ca_system_ids = {0x500};
    expect("newScramblingConfig",
           "0C 0001"                                    // config
           "  0F 0001 0C 00000001"                      // services
           "    08 0001 00000101"                       // service_id
           "    0F 0002 08 00000002 00000200 00000201"  // pids
           "    0F 0003 08 00000001 00000500"           // ca_system_ids
           "    00 00"
           "00",
           kNothing, [&](auto& client) { client.send_newScramblingConfig(config); });
    EXPECT_EQ(called_->config, config);
    EMMData emm;
    emm.pid = 0x300;
    emm.ca_system_id = 0x600;
    emm.data = "emm";
    expect("EMM",
           "0C 0001"                       // emm
           "  08 0001 00000300"            // pid
           "  08 0002 00000600"            // ca_system_id
           "  0B 0003 00000003 656D6D 00"  // data
           "00",
           kNothing, [&](auto& client) { client.send_EMM(emm); });
    EXPECT_EQ(called_->emm, emm);
}

// What a client may leave out.
TEST_F(WireContract, Defaults) {
    cm_MuxControlSrvProcessor processor(called_);
    answer(processor, frame("01", "NewSDTActual",
                            "0C 0001 08 0001 00000001 08 0002 00000001 08 0003 00000001"
                            "0F 0005 0C 00000001 08 0001 00000101 00 00 00"));
    SDT sdt;
    sdt.transport_stream_id = sdt.original_network_id = sdt.version_number = 1;
    sdt.current_next_indicator = true;
    sdt.services.resize(1);
    sdt.services[0].service_id = 0x101;
    EXPECT_EQ(called_->sdt, sdt);
    EXPECT_TRUE(PAT().current_next_indicator && CAT().current_next_indicator &&
                PMT().current_next_indicator);
}

TEST_F(WireContract, StartNotification) {
    struct Listener final : cm_MuxNotifySrvIf {
        void NotifyKestanStarted() override { ++calls; }
        int calls = 0;
    };
    const auto listener = std::make_shared<Listener>();
    const std::string request = frame("01", "NotifyKestanStarted", kNothing);
    cm_MuxNotifySrvProcessor processor(listener);
    EXPECT_EQ(answer(processor, request), frame("02", "NotifyKestanStarted", kNothing));
    EXPECT_EQ(listener->calls, 1);
    const auto sent = std::make_shared<TMemoryBuffer>();
    cm_MuxNotifySrvClient(protocol_on(sent)).send_NotifyKestanStarted();
    EXPECT_EQ(sent->getBufferAsString(), request);
}

}  // namespace
