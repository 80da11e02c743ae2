#include "tools/kestan-control/notification_server.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <future>
#include <stdexcept>
#include <string>
#include <system_error>

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>

#include "thrift/cm_MuxNotifySrv.h"
#include "thrift/retrying_server_socket.h"
#include "tools/service/diagnostics.h"

namespace {

using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TServerEventHandler;
using apache::thrift::server::TThreadedServer;
using apache::thrift::transport::TFramedTransportFactory;
using orvel::thrift::ci_module::cm_MuxNotifySrvIf;
using orvel::thrift::ci_module::cm_MuxNotifySrvProcessor;

constexpr const char* kLoopback = "127.0.0.1";

// A client that connects and stays silent loses its connection after this time.
constexpr int kClientTimeoutMs = 1000;

// Thrift reserves what a message claims: without limits, eight stray bytes cost
// gigabytes.
constexpr int kStringLimit = 1024;
constexpr int kContainerLimit = 1024;

class Handler final : public cm_MuxNotifySrvIf {
public:
    explicit Handler(int fd) : fd_(fd) {}
    void NotifyKestanStarted() override { eventfd_write(fd_, 1); }

private:
    int fd_;
};

// Tells whether the server could open its port.
class Listening final : public TServerEventHandler {
public:
    void preServe() override {
        is_listening_ = true;
        promise_.set_value();
    }

    void failed(const std::exception_ptr& error) {
        if (!is_listening_) promise_.set_exception(error);
    }

    // Throws what the server threw.
    void wait() { promise_.get_future().get(); }

private:
    bool is_listening_ = false;  // server's thread only
    std::promise<void> promise_;
};

}  // namespace

NotificationServer::NotificationServer(int port)
    : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    const auto socket = std::make_shared<RetryingServerSocket>(
        kLoopback, port,
        [](const std::string& line) { warn("start notification: " + line); });
    socket->setRecvTimeout(kClientTimeoutMs);
    socket->setSendTimeout(kClientTimeoutMs);
    server_ = std::make_unique<TThreadedServer>(
        std::make_shared<cm_MuxNotifySrvProcessor>(std::make_shared<Handler>(fd_)),
        socket, std::make_shared<TFramedTransportFactory>(),
        std::make_shared<TBinaryProtocolFactory>(kStringLimit, kContainerLimit,
                                                 /*strict_read=*/false,
                                                 /*strict_write=*/true));
    const auto listening = std::make_shared<Listening>();
    server_->setServerEventHandler(listening);
    thread_ = std::thread([this, listening] {
        try {
            server_->serve();
        } catch (const std::exception&) {
            listening->failed(std::current_exception());
        }
        has_ended_ = true;
        eventfd_write(fd_, 1);
    });
    try {
        listening->wait();
    } catch (const std::exception& error) {
        thread_.join();
        close(fd_);
        throw std::runtime_error("cannot serve kestan's start notification on " +
                                 std::string(kLoopback) + ':' + std::to_string(port) +
                                 " (" + error.what() +
                                 "): does another control process of this instance run?");
    }
}

NotificationServer::~NotificationServer() {
    server_->stop();
    thread_.join();
    close(fd_);
}
