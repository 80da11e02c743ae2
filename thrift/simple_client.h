#ifndef KESTAN_THRIFT_SIMPLE_CLIENT_H
#define KESTAN_THRIFT_SIMPLE_CLIENT_H

#include <memory>
#include <string>

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include "thrift/time_limited_socket.h"

namespace orvel::thrift::utils {

// A Thrift client together with its one connection: `Client` is a generated client class,
// called through this object. Framed transport, binary protocol.
//
// The peer is not trusted. Connecting and the first call together take `timeout_ms` at
// most, and so does each further call, even if the peer sends byte by byte (see
// TimeLimitedSocket for host names with several addresses). A reply has at most
// kMaxReplySize bytes, and nothing in it makes the client allocate more.
//
// Every failure, of construction or of a call, is an apache::thrift::TException, except
// memory exhaustion. Then the connection is useless. It closes with the object. One
// thread.
template <typename Client>
class SimpleClient : public virtual Client {
public:
    static constexpr int kTimeoutMs = 1000;
    static constexpr int kMaxReplySize = 64 * 1024;  // a number, or the text of an error

    // Connects.
    SimpleClient(const std::string& host, int port, int timeout_ms = kTimeoutMs)
        : SimpleClient(Connection(host, port, timeout_ms)) {
        transport_->open();
    }

private:
    using TSocket = apache::thrift::transport::TSocket;
    using TFramedTransport = apache::thrift::transport::TFramedTransport;
    using TBinaryProtocol = apache::thrift::protocol::TBinaryProtocol;

    // A virtual base is built before the members, so its protocol comes in from outside.
    struct Connection {
        Connection(const std::string& host, int port, int timeout_ms)
            : socket(std::make_shared<TimeLimitedSocket>(host, port, timeout_ms)),
              transport(std::make_shared<TFramedTransport>(socket)),
              protocol(std::make_shared<TBinaryProtocol>(
                  transport, /*string_limit=*/kMaxReplySize,
                  /*container_limit=*/kMaxReplySize, /*strict_read=*/false,
                  /*strict_write=*/true)) {
            transport->setMaxFrameSize(kMaxReplySize);
        }

        std::shared_ptr<TSocket> socket;
        std::shared_ptr<TFramedTransport> transport;
        std::shared_ptr<TBinaryProtocol> protocol;
    };

    explicit SimpleClient(const Connection& connection)
        : Client(connection.protocol),
          socket_(connection.socket),
          transport_(connection.transport),
          protocol_(connection.protocol) {}

    std::shared_ptr<TSocket> socket_;
    std::shared_ptr<TFramedTransport> transport_;
    std::shared_ptr<TBinaryProtocol> protocol_;
};

}  // namespace orvel::thrift::utils

#endif
