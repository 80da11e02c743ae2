// bare_loop PORT KBPS: the floor of the whole daemon. Sends datagrams of the size of
// seven packets to a port of this host at a bitrate, and sleeps to the slot of the next
// one; nothing else.

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"
#include "tools/receive/udp_receiver.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const sockaddr_in to = parse_endpoint(std::string("127.0.0.1:") + argv[1]);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);

    constexpr std::int64_t packets = 7;
    const std::int64_t kbps = std::atoi(argv[2]);
    const std::int64_t packet_ns =
        (static_cast<std::int64_t>(kTsPacketBits) * kNsPerMs + kbps / 2) / kbps;
    const std::array<std::uint8_t, packets * kTsPacketSize> datagram{};
    for (std::int64_t slot_time_ns = steady_now_ns();;) {
        sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&to), sizeof to);
        slot_time_ns += packets * packet_ns;
        std::this_thread::sleep_for(
            std::chrono::nanoseconds(slot_time_ns - steady_now_ns()));
    }
}
