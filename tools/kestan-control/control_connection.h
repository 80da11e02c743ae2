#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_CONNECTION_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_CONNECTION_H

#include <stdexcept>
#include <string>

#include "thrift/cm_MuxControlSrv.h"
#include "thrift/simple_client.h"

// Where Kestan's control service is.
struct ControlAddress {
    std::string host = "127.0.0.1";
    int set = 0;           // instance number
    double timeout_s = 3;  // of connecting with the first call, and of each other

    [[nodiscard]] int port() const;
    [[nodiscard]] std::string text() const;  // "127.0.0.1:9501"
};

// A connection or a call that failed: what was tried, and what to do.
class ControlError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A connection to Kestan's control service, closed with the object. Kestan serves one at
// a time: hold it no longer than needed. Every failure is a ControlError. One thread.
class ControlConnection {
public:
    using Service = orvel::thrift::ci_module::cm_MuxControlSrvClient;

    // Connects.
    explicit ControlConnection(const ControlAddress& address);

    // What `make_call` returns, which calls the service's `method` on its argument.
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
};

#endif
