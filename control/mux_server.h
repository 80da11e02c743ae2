#ifndef KESTAN_CONTROL_MUX_SERVER_H
#define KESTAN_CONTROL_MUX_SERVER_H

// The control server: one thread, "MuxSrv", that creates the handler and serves
// cm_MuxControlSrv on a TCP port of every address, over Thrift's framed transport and
// binary protocol. It serves one connection at a time. A client whose host has vanished
// is dropped after 90 s. So is a client that leaves replies unread for 90 s and has no
// room for more. A client that is only silent stays connected.

// Starts the thread and returns 0. Does not wait until the port is open. If the thread
// cannot be started, logs the reason and returns -1. Main thread, once, after
// muxer_create.
//
// An exception that leaves the thread's body, for example because the port is taken, is
// logged and ends the process at once with status 1: without its control service the
// process is of no use, and the service manager starts it again.
int StartMuxServer(int port);

// The thread's body: serves until Thrift's server ends, then frees everything. Nothing
// here ends that server. Returns 0. A connection that cannot be accepted is logged once
// and tried again (see thrift/retrying_server_socket.h).
int MuxServerThread(int port);

#endif
