#ifndef KESTAN_BENCH_UDP_CAPTURE_H
#define KESTAN_BENCH_UDP_CAPTURE_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "dvb/nanoseconds.h"
#include "tools/receive/udp_receiver.h"

// Keeps the datagrams that come to a port of this host.
class UdpCapture {
public:
    explicit UdpCapture(int port)
        : receiver_(parse_endpoint("0.0.0.0:" + std::to_string(port)), "") {}

    struct Datagram {
        std::int64_t time_ns;  // when the kernel received it, on the steady clock
        std::string bytes;
    };

    // What comes within `duration` from now on.
    [[nodiscard]] std::vector<Datagram> receive_for(std::chrono::nanoseconds duration) {
        for (bool is_empty = false; !is_empty;) {  // of what came before
            is_empty = true;
            receiver_.receive(0, [&](auto...) { is_empty = false; });
        }
        std::vector<Datagram> datagrams;
        const std::int64_t end = steady_now_ns() + duration.count();
        while (steady_now_ns() < end) {
            receiver_.receive(end - steady_now_ns(),
                              [&](auto time, auto* data, auto size) {
                                  datagrams.push_back({time, {data, data + size}});
                              });
        }
        return datagrams;
    }

private:
    UdpReceiver receiver_;
};

#endif
