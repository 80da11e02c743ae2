#include "tools/kestan-control/control_connection.h"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <system_error>

#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>

#include "thrift/instance_ports.h"

using apache::thrift::TException;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TSocket;
using apache::thrift::transport::TTransportException;

namespace {

// The opening call has no effect on the stream.
constexpr const char* kOpeningMethod = "newScramblingConfig";

// Thrift has no error code for a refused connection, only the system's text.
bool is_refused(const TTransportException& error) {
    const std::string refused = std::generic_category().message(ECONNREFUSED);
    return std::string(error.what()).find(refused) != std::string::npos;
}

std::string seconds_text(double seconds) {
    return fmt::format("{:g} s", seconds);
}

}  // namespace

int ControlAddress::port() const {
    return ports_of(set).control;
}

std::string ControlAddress::text() const {
    return host + ':' + std::to_string(port());
}

std::string ControlAddress::waiting_text() const {
    return text() + " did not answer " + kOpeningMethod + " within " +
           seconds_text(timeout_s) +
           ": kestan serves one client at a time, and another one probably holds the "
           "connection";
}

ControlConnection::ControlConnection(const ControlAddress& address)
    : address_(address), service_(connect(address)) {
    call(kOpeningMethod, [](Service& service) { service.send_newScramblingConfig({}); });
}

int ControlConnection::fd() {
    const auto transport =
        static_cast<Service&>(service_).getInputProtocol()->getTransport();
    const auto framed = std::dynamic_pointer_cast<TFramedTransport>(transport);
    return std::dynamic_pointer_cast<TSocket>(framed->getUnderlyingTransport())
        ->getSocketFD();
}

void ControlConnection::wait_for_turn() {
    call(kOpeningMethod, [](Service& service) { service.recv_newScramblingConfig(); });
    has_turn_ = true;
}

ControlConnection::Client ControlConnection::connect(const ControlAddress& address) {
    try {
        return {address.host, address.port(),
                static_cast<int>(std::lround(address.timeout_s * 1000))};
    } catch (const TTransportException& error) {
        if (is_refused(error)) {
            throw NothingListens("nothing listens on " + address.text() +
                                 ": is kestan running with -s " +
                                 std::to_string(address.set) + "?");
        }
        throw ControlError("cannot connect to " + address.text() + " (" + error.what() +
                           "): check --host and the network");
    }
}

void ControlConnection::explain(const char* method, const TException& error) const {
    const auto* const transport = dynamic_cast<const TTransportException*>(&error);
    if (transport == nullptr) {
        throw ControlError(address_.text() + " answered " + method + " with \"" +
                           error.what() + "\": is it kestan, and of this release?");
    }
    if (transport->getType() == TTransportException::TIMED_OUT) {
        if (!has_turn_) {
            throw ControlError(address_.waiting_text() +
                               "; end that one, or wait longer with --timeout");
        }
        throw ControlError(address_.text() + " did not answer " + method + " within " +
                           seconds_text(address_.timeout_s) +
                           ": kestan may carry it out later; look at its log, or wait "
                           "longer with --timeout");
    }
    throw ControlError(address_.text() + " broke off before it answered " + method +
                       ": has kestan ended? See its log, start it and try again");
}
