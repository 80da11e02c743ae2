#ifndef KESTAN_APP_OUTPUT_H
#define KESTAN_APP_OUTPUT_H

#include <netinet/in.h>

#include <cstdint>

#include "app/cmd_options.h"

// The UDP output: one IPv4 socket with one destination, which is chosen at start-up. The
// main thread writes it before another thread exists. Then it is only read.
struct output_socket {
    int fd;
    sockaddr_in dest;
};

extern output_socket mux_output;

enum class output_result {
    kReady,
    kFailed,      // a step of opening the socket failed; it is closed
    kBadAddress,  // `outip` cannot be parsed; nothing was opened
};

// Opens the socket and fills mux_output. The destination is `outip`, or by default the
// FPGA's input for instance `set`. The interface is `outif`, or by default the FPGA's for
// the FPGA's destination and none for another. Logs failures. Main thread, once, after
// log_setup.
[[nodiscard]] output_result open_output(const cmd_options& options);

// Sends one datagram with one system call and returns the call's result. A datagram that
// cannot be sent is lost. Pacing loop only.
int send_output(const std::uint8_t* data, std::uint32_t length);

#endif
