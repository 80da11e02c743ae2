#ifndef KESTAN_CONTROL_MUX_SERVER_H
#define KESTAN_CONTROL_MUX_SERVER_H

#include <memory>

#include <thrift/protocol/TProtocol.h>

// The control server: one thread, "MuxSrv", that makes the handler and serves
// cm_MuxControlSrv on a TCP port of every address, over Thrift's framed transport and
// binary protocol, one connection at a time.

// Starts the thread and returns 0 without waiting for its port to be open; or logs why it
// could not and returns -1. Main thread, once, after muxer_create.
//
// An exception that leaves the thread's body, such as a port that is taken, is logged and
// ends the process at once with status 1: without its control service it is of no use,
// and the service manager starts it again.
int StartMuxServer(int port);

// The thread's body: serves until accepting fails, then tears everything down. Returns 0.
int MuxServerThread(int port);

// The binary protocol that the server speaks, with its limits.
[[nodiscard]] std::shared_ptr<apache::thrift::protocol::TProtocolFactory>
mux_protocol_factory();

#endif
