#ifndef KESTAN_APP_OUTPUT_H
#define KESTAN_APP_OUTPUT_H

#include <netinet/in.h>

#include <cstdint>

#include "app/cmd_options.h"

// The UDP output: one IPv4 socket with one destination, chosen at start-up for the life
// of the process. Written by the main thread before any other exists, then only read.
struct output_socket {
    int fd;
    sockaddr_in dest;
};

extern output_socket mux_output;

enum class output_result {
    ready,
    failed,       // a step of the socket failed; it is closed again
    bad_address,  // `outip` cannot be parsed; nothing was opened
};

// Resolves the destination (`outip`, or else the FPGA's input of instance `set`) and the
// interface (`outif`, or else the FPGA's for the FPGA's destination), opens the socket
// and fills mux_output. Failures are logged. Main thread, once, after log_setup.
[[nodiscard]] output_result open_output(const cmd_options& options);

// Sends one datagram with one system call and returns what it returned. A datagram that
// cannot be sent is lost. Pacing loop only.
int send_output(const std::uint8_t* data, std::uint32_t length);

#endif
