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
// Kestan waits for the answer to its notification. So the service answers at once, and
// makes fd() readable. It runs on a separate thread, which inherits the signal mask of
// the thread that calls the constructor.
class NotificationServer {
public:
    // Starts to serve. Throws std::runtime_error if the port is taken.
    explicit NotificationServer(int port);
    ~NotificationServer();
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;

    // Returns an eventfd. It is readable after a notification until it is read, and also
    // if has_ended().
    [[nodiscard]] int fd() const { return fd_; }

    // Returns whether the service has ended because memory was exhausted. If a connection
    // cannot be accepted, it says so on standard error and tries again.
    [[nodiscard]] bool has_ended() const { return has_ended_; }

private:
    int fd_;
    std::atomic<bool> has_ended_ = false;
    std::unique_ptr<apache::thrift::server::TServer> server_;
    std::thread thread_;
};

#endif
