// bare_relay FROM TO: the floor of kestan-insert. Receives datagrams on a port of this
// host and sends them to another one; nothing else.

#include <array>
#include <cstdint>
#include <string>

#include "tools/receive/udp_receiver.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const sockaddr_in from = parse_endpoint(std::string("127.0.0.1:") + argv[1]);
    const sockaddr_in to = parse_endpoint(std::string("127.0.0.1:") + argv[2]);
    const int in = socket(AF_INET, SOCK_DGRAM, 0);
    const int out = socket(AF_INET, SOCK_DGRAM, 0);
    constexpr int buffer_size = 32 * 1024 * 1024;
    setsockopt(in, SOL_SOCKET, SO_RCVBUFFORCE, &buffer_size, sizeof buffer_size);
    if (bind(in, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0) return 1;

    std::array<std::uint8_t, 65536> datagram{};
    for (;;) {
        const ssize_t size = recv(in, datagram.data(), datagram.size(), 0);
        if (size < 0) return 1;
        sendto(out, datagram.data(), static_cast<std::size_t>(size), 0,
               reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
}
