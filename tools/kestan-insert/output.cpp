#include "tools/kestan-insert/output.h"

#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "tools/kestan-insert/options.h"
#include "tools/receive/udp_receiver.h"

namespace {

[[noreturn]] void fail(const std::string& attempt, const std::string& advice = "") {
    throw std::runtime_error("cannot " + attempt + ": " + std::strerror(errno) + advice);
}

template <typename Value>
void set_option(int fd, int name, const Value& value) {
    if (setsockopt(fd, IPPROTO_IP, name, &value, sizeof value) != 0)
        fail("set up the socket of OUTPUT");
}

}  // namespace

Output::Output(const std::string& address, const std::string& interface, int ttl)
    : socket_(address == kPipe ? -1 : socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (address == kPipe) return;
    if (socket_.get() < 0) fail("open a UDP socket");
    to_ = parse_endpoint(address);
    set_option(socket_.get(), IP_TTL, ttl);
    set_option(socket_.get(), IP_MULTICAST_TTL, ttl);
    if (!interface.empty()) use_interface(interface);
}

void Output::use_interface(const std::string& interface) const {
    const unsigned index = if_nametoindex(interface.c_str());
    if (index == 0)
        fail("use interface " + interface, "; \"ip link\" lists those of this machine");
    set_option(socket_.get(), IP_MULTICAST_IF, ip_mreqn{{}, {}, static_cast<int>(index)});
    if (!IN_MULTICAST(ntohl(to_.sin_addr.s_addr)) &&
        setsockopt(socket_.get(), SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                   static_cast<socklen_t>(interface.size())) != 0)
        fail("send through interface " + interface);
}

bool Output::send(const std::uint8_t* datagram, std::size_t size,
                  const std::optional<DatagramPackets>& packets) {
    if (socket_.get() >= 0) {
        return sendto(socket_.get(), datagram, size, 0,
                      reinterpret_cast<const sockaddr*>(&to_), sizeof to_) >= 0;
    }
    if (!packets) return true;
    if (packets->stride == kTsPacketSize)
        return write(packets->first, packets->count * kTsPacketSize);
    for (std::size_t i = 0; i < packets->count; ++i) {
        if (!write(packets->packet(i), kTsPacketSize)) return false;
    }
    return true;
}

// A signal that ends the program also ends the wait for a reader.
bool Output::write(const std::uint8_t* data, std::size_t size) {
    while (size != 0) {
        const ssize_t written = ::write(STDOUT_FILENO, data, size);
        if (written < 0 && errno == EINTR) return false;
        if (written < 0)
            throw std::system_error(errno, std::generic_category(),
                                    "cannot write to standard output");
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}
