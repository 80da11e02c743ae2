#include "control/control_transport.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "control/control_protocol.h"
#include "thrift/cm_MuxControlSrv.h"

using namespace orvel::thrift::ci_module;
using namespace orvel::thrift::dvb_tables;

namespace {

using apache::thrift::TException;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TMemoryBuffer;

struct Counter final : cm_MuxControlSrvNull {
    void EMM(const EMMData& /*emm*/) override { ++calls; }
    std::int32_t NewSDTActual(const SDT& sdt) override {
        std::size_t descriptors = 0;
        for (const SDTService& service : sdt.services) {
            descriptors += service.descriptors.size();
        }
        return static_cast<std::int32_t>(descriptors);
    }
    int calls = 0;
};

class ControlTransportTest : public testing::Test {
protected:
    // Serves the connection to its end, as Thrift's server does. Returns the reason if it
    // was closed before.
    std::string serve() {
        cm_MuxControlSrvProcessor processor(service_);
        const auto in = std::make_shared<ControlProtocol>(
            std::make_shared<ControlTransport>(requests_));
        const auto out = std::make_shared<ControlProtocol>(
            std::make_shared<ControlTransport>(replies_));
        try {
            while (processor.process(in, out, nullptr)) {
            }
            return "the processor gave up";
        } catch (const TException& error) {
            const std::string reason = error.what();
            return reason == "No more data to read." ? "" : reason;
        }
    }

    void send_emm(std::size_t bytes) {
        EMMData emm;
        emm.data.resize(bytes);
        client_.send_EMM(emm);
    }

    // Serves an SDT whose descriptors have no data. Returns how many were read.
    std::int32_t descriptors_read(const std::vector<std::size_t>& of_services) {
        SDT sdt;
        sdt.services.resize(of_services.size());
        for (std::size_t i = 0; i < of_services.size(); ++i) {
            sdt.services[i].descriptors.resize(of_services[i]);
        }
        client_.send_NewSDTActual(sdt);
        if (!serve().empty()) return -1;
        return client_.recv_NewSDTActual();
    }

    std::shared_ptr<Counter> service_ = std::make_shared<Counter>();
    std::shared_ptr<TMemoryBuffer> requests_ = std::make_shared<TMemoryBuffer>();
    std::shared_ptr<TMemoryBuffer> replies_ = std::make_shared<TMemoryBuffer>();
    cm_MuxControlSrvClient client_{
        std::make_shared<TBinaryProtocol>(std::make_shared<TFramedTransport>(replies_)),
        std::make_shared<TBinaryProtocol>(std::make_shared<TFramedTransport>(requests_))};
};

constexpr std::size_t kAroundData = 50;  // of an EMM's message

TEST_F(ControlTransportTest, TakesFramesUpToItsLimit) {
    send_emm(kMaxControlFrame - kAroundData);
    send_emm(10);
    EXPECT_EQ(serve(), "");
    EXPECT_EQ(service_->calls, 2);
    send_emm(kMaxControlFrame);
    EXPECT_EQ(serve(), "Received an oversized frame");
}

TEST_F(ControlTransportTest, TakesSeveralMessagesInAFrameButNoMessageInSeveral) {
    for (const std::size_t bytes : {10u, 1500000u}) {
        std::string frame;
        for (int i = 0; i < 2; ++i) {
            send_emm(bytes);
            frame += requests_->readAsString(requests_->available_read()).substr(4);
        }
        const auto framed = [&](std::size_t at, std::size_t size) {
            TFramedTransport transport(requests_);
            transport.write(reinterpret_cast<const std::uint8_t*>(frame.data() + at),
                            static_cast<std::uint32_t>(size));
            transport.flush();
        };
        service_->calls = 0;
        framed(0, frame.size());
        EXPECT_EQ(serve(), "");
        EXPECT_EQ(service_->calls, 2);
        for (const std::size_t cut : {std::size_t{20}, frame.size() - 20}) {
            framed(0, cut);
            framed(cut, frame.size() - cut);
            EXPECT_EQ(serve(), "a message is longer than its frame");
            requests_->resetBuffer();
        }
    }
}

TEST_F(ControlTransportTest, TakesTheListsOfTheLargestTablesAndOfAFrame) {
    EXPECT_EQ(descriptors_read({129536}), 129536);
    EXPECT_EQ(descriptors_read({110000, 110000, 113000}), 333000);
    EXPECT_EQ(descriptors_read({131073}), -1);
}

}  // namespace
