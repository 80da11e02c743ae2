#ifndef KESTAN_BENCH_CONTROL_CLIENT_H
#define KESTAN_BENCH_CONTROL_CLIENT_H

#include <chrono>
#include <memory>
#include <thread>

#include <thrift/TOutput.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include "thrift/cm_MuxControlSrv.h"

// A control process's connection to Kestan's control service on this host; it is retried
// for some seconds, since the daemon may be just starting.
class ControlClient : public orvel::thrift::ci_module::cm_MuxControlSrvClient {
public:
    ControlClient() : ControlClient(connect()) {}

private:
    using TTransport = apache::thrift::transport::TTransport;

    explicit ControlClient(const std::shared_ptr<TTransport>& transport)
        : cm_MuxControlSrvClient(
              std::make_shared<apache::thrift::protocol::TBinaryProtocol>(transport)) {}

    static std::shared_ptr<TTransport> connect() {
        apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});
        const auto socket =
            std::make_shared<apache::thrift::transport::TSocket>("127.0.0.1", 9501);
        socket->setRecvTimeout(10000);
        const auto transport =
            std::make_shared<apache::thrift::transport::TFramedTransport>(socket);
        for (int tries = 500;; --tries) {
            try {
                transport->open();
                return transport;
            } catch (const apache::thrift::TException&) {
                if (tries == 0) throw;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
    }
};

#endif
