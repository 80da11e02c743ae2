#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_CONNECTION_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_CONNECTION_H

#include <stdexcept>
#include <string>

#include "thrift/cm_MuxControlSrv.h"
#include "thrift/simple_client.h"

// The address of Kestan's control service, and how long to wait for it.
struct ControlAddress {
    std::string host = "127.0.0.1";
    int set = 0;           // instance number
    double timeout_s = 3;  // of connecting with the first call, and of each other

    [[nodiscard]] int port() const;
    [[nodiscard]] std::string text() const;  // "127.0.0.1:9501"
    // Returns a message that says that Kestan serves another client.
    [[nodiscard]] std::string waiting_text() const;
};

// A connection or a call failed. The message says what was tried and what to do.
class ControlError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// No program listens on the port, as is normal while Kestan starts.
class NothingListens : public ControlError {
public:
    using ControlError::ControlError;
};

// A connection to Kestan's control service, closed with the object. Every failure is a
// ControlError. One thread.
//
// Kestan serves one connection at a time, and it carries out the calls of a connection
// that had to wait even if the client has given up. So a connection opens with a call
// that has no effect, and makes the others only after Kestan has answered. If a client
// gives up while it waits, Kestan carries out none of its other calls.
class ControlConnection {
public:
    using Service = orvel::thrift::ci_module::cm_MuxControlSrvClient;

    // Connects and sends the opening call.
    explicit ControlConnection(const ControlAddress& address);
    ControlConnection(const ControlConnection&) = delete;
    ControlConnection& operator=(const ControlConnection&) = delete;

    // Returns a file descriptor. It is readable when Kestan has answered the opening call
    // or the connection is lost.
    [[nodiscard]] int fd();

    // Returns when Kestan has answered the opening call: it serves this connection now,
    // and keeps the other clients waiting.
    void wait_for_turn();

    // Runs `make_call`, which calls the service's `method` on its argument, and returns
    // its result. REQUIRES: wait_for_turn() has returned.
    template <typename Call>
    auto call(const char* method, Call make_call) {
        try {
            return make_call(static_cast<Service&>(service_));
        } catch (const apache::thrift::TException& error) {
            explain(method, error);
        }
    }

private:
    using Client = orvel::thrift::utils::SimpleClient<Service>;

    static Client connect(const ControlAddress& address);
    [[noreturn]] void explain(const char* method,
                              const apache::thrift::TException& error) const;

    ControlAddress address_;
    Client service_;
    bool has_turn_ = false;
};

#endif
