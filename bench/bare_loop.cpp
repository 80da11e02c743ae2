// bare_loop PORT KBPS: the floor of the whole daemon. Sends datagrams of seven packets to
// a port of this host at a bitrate, and sleeps to the slot of the next one; nothing else.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);

    constexpr std::int64_t packets = 7;
    const std::int64_t kbps = std::atoi(argv[2]);
    const std::int64_t packet_ns =
        (static_cast<std::int64_t>(kTsPacketBits) * kNsPerMs + kbps / 2) / kbps;
    std::array<std::uint8_t, packets * kTsPacketSize> datagram{};
    for (std::size_t at = 0; at < datagram.size(); at += kTsPacketSize) {
        datagram[at] = kSyncByte;
    }
    for (std::int64_t slot_time_ns = steady_now_ns();;) {
        sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<const sockaddr*>(&to), sizeof to);
        slot_time_ns += packets * packet_ns;
        const std::int64_t rest = slot_time_ns - steady_now_ns();
        if (rest <= 0) continue;
        const timespec duration{rest / kNsPerSecond, rest % kNsPerSecond};
        nanosleep(&duration, nullptr);
    }
}
