#include "thrift/retrying_server_socket.h"

#include <chrono>
#include <thread>
#include <utility>

namespace {

using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;

constexpr std::chrono::milliseconds kBetweenTries{100};

thread_local bool this_thread_accepts = false;

struct Accepting {
    Accepting() { this_thread_accepts = true; }
    ~Accepting() { this_thread_accepts = false; }
    Accepting(const Accepting&) = delete;
    Accepting& operator=(const Accepting&) = delete;
};

// Returns whether the failure means that the server is to end.
bool is_end(const TTransportException& error) {
    return error.getType() == TTransportException::INTERRUPTED ||
           error.getType() == TTransportException::NOT_OPEN;
}

}  // namespace

RetryingServerSocket::RetryingServerSocket(int port, Report report)
    : TServerSocket(port), report_(std::move(report)) {}

RetryingServerSocket::RetryingServerSocket(const std::string& address, int port,
                                           Report report)
    : TServerSocket(address, port), report_(std::move(report)) {}

bool RetryingServerSocket::is_accepting() {
    return this_thread_accepts;
}

std::shared_ptr<TTransport> RetryingServerSocket::acceptImpl() {
    for (bool has_failed = false;; has_failed = true) {
        try {
            const Accepting accepting;
            return TServerSocket::acceptImpl();
        } catch (const TTransportException& error) {
            if (is_end(error)) throw;
            if (!has_failed) {
                report_(std::string("cannot accept connections (") + error.what() +
                        "), trying again every 100 ms");
            }
        }
        std::this_thread::sleep_for(kBetweenTries);
    }
}
