#ifndef KESTAN_THRIFT_SIMPLE_CLIENT_H
#define KESTAN_THRIFT_SIMPLE_CLIENT_H

#include <memory>
#include <string>

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

namespace orvel::thrift::utils {

// A Thrift client together with its one connection: `Client` is a generated client class,
// called through this object. Framed transport, binary protocol; connecting and each send
// and receive take one second at most.
//
// Every failure, of construction or of a call, is an apache::thrift::TException. The
// connection closes with the object. One thread.
template <typename Client>
class SimpleClient : public virtual Client {
public:
    static constexpr int kTimeoutMs = 1000;

    // Connects.
    SimpleClient(const std::string& host, int port, int timeout_ms = kTimeoutMs)
        : SimpleClient(std::make_shared<apache::thrift::transport::TSocket>(host, port),
                       timeout_ms) {
        transport_->open();
    }

private:
    using TSocket = apache::thrift::transport::TSocket;
    using TFramedTransport = apache::thrift::transport::TFramedTransport;
    using TBinaryProtocol = apache::thrift::protocol::TBinaryProtocol;

    SimpleClient(const std::shared_ptr<TSocket>& socket, int timeout_ms)
        : SimpleClient(socket, with_timeouts(socket, timeout_ms)) {}

    SimpleClient(const std::shared_ptr<TSocket>& socket,
                 const std::shared_ptr<TFramedTransport>& transport)
        : SimpleClient(socket, transport, std::make_shared<TBinaryProtocol>(transport)) {}

    // A virtual base is made before the members: so all three come in from outside.
    SimpleClient(const std::shared_ptr<TSocket>& socket,
                 const std::shared_ptr<TFramedTransport>& transport,
                 const std::shared_ptr<TBinaryProtocol>& protocol)
        : Client(protocol), socket_(socket), transport_(transport), protocol_(protocol) {}

    static std::shared_ptr<TFramedTransport> with_timeouts(
        const std::shared_ptr<TSocket>& socket, int timeout_ms) {
        socket->setConnTimeout(timeout_ms);
        socket->setRecvTimeout(timeout_ms);
        socket->setSendTimeout(timeout_ms);
        return std::make_shared<TFramedTransport>(socket);
    }

    std::shared_ptr<TSocket> socket_;
    std::shared_ptr<TFramedTransport> transport_;
    std::shared_ptr<TBinaryProtocol> protocol_;
};

}  // namespace orvel::thrift::utils

#endif
