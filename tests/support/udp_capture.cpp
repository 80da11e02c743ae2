#include "tests/support/udp_capture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <future>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

void set_option(int fd, int level, int name, int value) {
    if (setsockopt(fd, level, name, &value, sizeof value) != 0) {
        throw std::runtime_error("setsockopt");
    }
}

}  // namespace

UdpCapture::UdpCapture(int port, const std::string& group)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), port_(port) {
    set_option(fd_, SOL_SOCKET, SO_TIMESTAMPNS, 1);
    set_option(fd_, SOL_SOCKET, SO_RCVBUF, 8 << 20);
    set_option(fd_, IPPROTO_IP, IP_RECVTTL, 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (bind(fd_, any, size) != 0 || getsockname(fd_, any, &size) != 0) {
        throw std::runtime_error("cannot bind UDP port " + std::to_string(port));
    }
    port_ = ntohs(address.sin_port);
    if (group.empty()) return;
    ip_mreq membership{};
    membership.imr_multiaddr.s_addr = inet_addr(group.c_str());
    membership.imr_interface.s_addr = inet_addr("127.0.0.1");
    if (setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) !=
        0) {
        throw std::runtime_error("cannot join " + group);
    }
}

std::unique_ptr<UdpCapture> UdpCapture::in_namespace(const std::string& name, int port) {
    const auto open_there = [&] {
        const int fd = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
        const bool entered = setns(fd, CLONE_NEWNET) == 0;
        close(fd);
        if (!entered) throw std::runtime_error("cannot enter " + name);
        return std::make_unique<UdpCapture>(port);
    };
    return std::async(std::launch::async, open_there).get();  // a thread enters alone
}

UdpCapture::~UdpCapture() {
    close(fd_);
}

std::vector<UdpCapture::Datagram> UdpCapture::receive_for(
    std::chrono::milliseconds duration) {
    using std::chrono::ceil, std::chrono::milliseconds;
    const auto end = Clock::now() + duration;
    std::vector<Datagram> datagrams;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        Datagram datagram;
        if (receive(datagram, ceil<milliseconds>(end - now))) {
            datagrams.push_back(std::move(datagram));
        }
    }
    return datagrams;
}

void UdpCapture::drain() {
    Datagram datagram;
    while (receive(datagram, std::chrono::milliseconds(0))) {
    }
}

bool UdpCapture::receive(Datagram& datagram, std::chrono::milliseconds timeout) const {
    pollfd ready{fd_, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return false;
    std::array<char, 2048> bytes{};
    std::array<char, 256> control{};
    iovec data{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = recvmsg(fd_, &message, 0);
    if (length < 0) return false;
    datagram.bytes.assign(bytes.data(), static_cast<std::size_t>(length));
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_TIMESTAMPNS) {
            timespec time{};
            std::memcpy(&time, CMSG_DATA(header), sizeof time);
            datagram.time_ns = std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
        }
        if (header->cmsg_level == IPPROTO_IP && header->cmsg_type == IP_TTL) {
            std::memcpy(&datagram.ttl, CMSG_DATA(header), sizeof datagram.ttl);
        }
    }
    return true;
}
