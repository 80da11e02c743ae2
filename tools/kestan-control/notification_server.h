#ifndef KESTAN_TOOLS_KESTAN_CONTROL_NOTIFICATION_SERVER_H
#define KESTAN_TOOLS_KESTAN_CONTROL_NOTIFICATION_SERVER_H

#include <atomic>
#include <memory>
#include <thread>

namespace apache::thrift::server {
class TServer;
}

// Serves cm_MuxNotifySrv on a TCP port of the loopback address, where Kestan says that it
// has started.
//
// A notification is answered at once and makes fd() readable: Kestan waits for the answer
// before it goes on. The service has a thread of its own, which inherits the signal mask.
class NotificationServer {
public:
    // Serves when it returns. Raises std::runtime_error when the port cannot be had.
    explicit NotificationServer(int port);
    ~NotificationServer();
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;

    // An eventfd: readable after notifications, until it is read, and when has_ended().
    [[nodiscard]] int fd() const { return fd_; }

    // It could not go on accepting connections.
    [[nodiscard]] bool has_ended() const { return has_ended_; }

private:
    int fd_;
    std::atomic<bool> has_ended_ = false;
    std::unique_ptr<apache::thrift::server::TServer> server_;
    std::thread thread_;
};

#endif
