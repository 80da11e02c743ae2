#include "control/mux_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>

#include <thrift/server/TSimpleServer.h>

#include "control/control_protocol.h"
#include "control/control_transport.h"
#include "control/mux_control_handler.h"
#include "framework/log.h"
#include "thrift/retrying_server_socket.h"

namespace {

using apache::thrift::server::TSimpleServer;
using orvel::thrift::ci_module::cm_MuxControlSrvProcessor;

// A peer that vanished (power lost, link cut) would hold the only connection for ever. So
// the kernel probes a silent peer and closes the connection if the peer has not answered
// for 90 s. A peer that answers the probes may be silent for days. The kernel sends no
// probes while a reply is not acknowledged; TCP_USER_TIMEOUT covers this case.
void close_when_peer_vanishes(int connection) {
    constexpr int idle_s = 60;
    constexpr int interval_s = 10;
    constexpr int probes = 3;
    constexpr int unanswered_ms = 1000 * (idle_s + probes * interval_s);
    const auto set = [connection](int level, int name, int value) {
        setsockopt(connection, level, name, &value, sizeof value);
    };
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, idle_s);
    set(IPPROTO_TCP, TCP_KEEPINTVL, interval_s);
    set(IPPROTO_TCP, TCP_KEEPCNT, probes);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, unanswered_ms);
}

// The logger can throw too, if memory is exhausted.
void log_exception(const char* what) noexcept {
    try {
        log_function(kLogError, 0, "Mux server EXCEPTION: %s", what);
    } catch (...) {
    }
}

void run_or_exit(int port) {
    try {
        MuxServerThread(port);
        return;
    } catch (const std::exception& error) {
        log_exception(error.what());
    } catch (...) {
        log_exception("of an unknown type");
    }
    _exit(1);  // no exit handlers: the main thread is running
}

}  // namespace

int StartMuxServer(int port) {
    const char* const name = "MuxSrv";
    try {
        std::thread server(run_or_exit, port);
        pthread_setname_np(server.native_handle(), name);
        server.detach();
    } catch (const std::exception& error) {
        log_function(kLogError, 0, "Can't launch Mux server. EXCEPTION: %s",
                     error.what());
        return -1;
    }
    return 0;
}

int MuxServerThread(int port) {
    const auto handler = std::make_shared<cm_MuxControlSrvHandler>();
    const auto processor = std::make_shared<cm_MuxControlSrvProcessor>(handler);
    const auto server_socket =
        std::make_shared<RetryingServerSocket>(port, [](const std::string& line) {
            log_function(kLogWarning, 0, "%s", line.c_str());
        });
    server_socket->setAcceptCallback(close_when_peer_vanishes);
    const auto transport_factory = std::make_shared<ControlTransportFactory>();
    const auto protocol_factory = std::make_shared<ControlProtocolFactory>();
    TSimpleServer server(processor, server_socket, transport_factory, protocol_factory);
    server.serve();
    return 0;
}
