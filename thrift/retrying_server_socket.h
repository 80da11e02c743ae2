#ifndef KESTAN_THRIFT_RETRYING_SERVER_SOCKET_H
#define KESTAN_THRIFT_RETRYING_SERVER_SOCKET_H

#include <functional>
#include <memory>
#include <string>

#include <thrift/transport/TServerSocket.h>

// Thrift's server socket, for a server that must be there for the whole life of its
// process. Thrift's server ends for good when accept(2) fails, for example because there
// are no descriptors left. This socket tries again every 100 ms until a connection is
// accepted, and only an interrupt or a socket that is closed ends the server.
//
// The first failure of a row is reported, the others are not. One thread accepts; as with
// every Thrift server socket, another one may interrupt it, which can take 100 ms.
class RetryingServerSocket final : public apache::thrift::transport::TServerSocket {
public:
    // Takes a line for a person, such as "cannot accept connections (accept(): Too many
    // open files), trying again every 100 ms". The thread that accepts calls it.
    using Report = std::function<void(const std::string&)>;

    // Listens on `port` of every address.
    RetryingServerSocket(int port, Report report);

    // Listens on `port` of one address.
    RetryingServerSocket(const std::string& address, int port, Report report);

    // Returns whether this thread accepts a connection just now. Thrift writes a message
    // for each failure: a program that shows Thrift's messages leaves these out.
    [[nodiscard]] static bool is_accepting();

private:
    std::shared_ptr<apache::thrift::transport::TTransport> acceptImpl() override;

    Report report_;
};

#endif
