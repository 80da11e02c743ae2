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
struct Listening final : TServerEventHandler {
    void preServe() override {
        has_begun = true;
        promise.set_value();
    }

    std::promise<void> promise;
    bool has_begun = false;  // server's thread only
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
            if (!listening->has_begun)
                listening->promise.set_exception(std::current_exception());
        }
        has_ended_ = true;
        eventfd_write(fd_, 1);
    });
    try {
        listening->promise.get_future().get();
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
