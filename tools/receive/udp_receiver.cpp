#include "tools/receive/udp_receiver.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "dvb/civil_clock.h"

namespace {

constexpr std::size_t kMaxDatagramSize = 65536;

// More than a third of a second of the densest stream, one packet a datagram at 100
// Mbit/s.
constexpr int kReceiveBufferSize = 32 * 1024 * 1024;

// A datagram can be read from the socket this long after its time stamp.
constexpr std::int64_t kDeliveryNs = kNsPerMs;

std::int64_t to_ns(const timespec& time) {
    return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

std::string to_text(const sockaddr_in& endpoint) {
    std::array<char, INET_ADDRSTRLEN> address{};
    inet_ntop(AF_INET, &endpoint.sin_addr, address.data(), address.size());
    return std::string(address.data()) + ':' + std::to_string(ntohs(endpoint.sin_port));
}

bool is_multicast(const sockaddr_in& endpoint) {
    return IN_MULTICAST(ntohl(endpoint.sin_addr.s_addr));
}

template <typename Value>
bool set_option(int fd, int level, int name, const Value& value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

[[noreturn]] void fail(const std::string& attempt, const std::string& advice) {
    throw std::runtime_error("cannot " + attempt + ": " + std::strerror(errno) + advice);
}

std::string advice_for_bind(int error) {
    if (error == EADDRINUSE) return "; another program receives there: end it first";
    if (error == EADDRNOTAVAIL)
        return "; give an address of this machine (ip address), or a multicast group";
    return "";
}

void bind_and_join(int fd, const sockaddr_in& from, const std::string& interface) {
    const unsigned index = interface.empty() ? 0 : if_nametoindex(interface.c_str());
    if (!interface.empty() && index == 0)
        fail("use interface " + interface, "; \"ip link\" lists those of this machine");
    // Several programs may receive one group. With a unicast address, the last program
    // would take all datagrams.
    if (is_multicast(from)) set_option(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0)
        fail("receive on " + to_text(from), advice_for_bind(errno));
    if (is_multicast(from)) {
        set_option(fd, IPPROTO_IP, IP_MULTICAST_ALL, 0);
        const ip_mreqn group{from.sin_addr, {}, static_cast<int>(index)};
        if (!set_option(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, group)) {
            fail("join the group of " + to_text(from),
                 "; name the interface that it comes in by");
        }
    } else if (!interface.empty() &&
               setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                          static_cast<socklen_t>(interface.size())) != 0) {
        fail("receive by interface " + interface + " alone", "");
    }
}

}  // namespace

sockaddr_in parse_endpoint(const std::string& text) {
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    const std::size_t colon = std::min(text.find(':'), text.size());
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] =
        std::from_chars(std::min(text.data() + colon + 1, end), end, port);
    if (error != std::errc() || stop != end || port == 0 ||
        inet_pton(AF_INET, text.substr(0, colon).c_str(), &endpoint.sin_addr) != 1) {
        throw std::runtime_error("\"" + text +
                                 "\" is not an IPv4 address with a port of 1 to 65535, "
                                 "such as 226.0.0.10:1234 or 127.0.0.1:5500");
    }
    endpoint.sin_port = htons(port);
    return endpoint;
}

UdpReceiver::UdpReceiver(const sockaddr_in& from, const std::string& interface,
                         ArrivalTime arrival_time)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      arrival_time_(arrival_time),
      buffers_(kBatch * kMaxDatagramSize) {
    for (std::size_t i = 0; i < kBatch; ++i) {
        slots_[i].buffer = {&buffers_[i * kMaxDatagramSize], kMaxDatagramSize};
        messages_[i].msg_hdr.msg_iov = &slots_[i].buffer;
        messages_[i].msg_hdr.msg_iovlen = 1;
        messages_[i].msg_hdr.msg_control = slots_[i].control.data();
        messages_[i].msg_hdr.msg_controllen = slots_[i].control.size();
    }
    if (fd() < 0) fail("open a UDP socket", "");
    // Without a privilege, the buffer gets what net.core.rmem_max allows.
    if (!set_option(fd(), SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBufferSize))
        set_option(fd(), SOL_SOCKET, SO_RCVBUF, kReceiveBufferSize);
    if (arrival_time_ == ArrivalTime::kStampOfKernel &&
        !set_option(fd(), SOL_SOCKET, SO_TIMESTAMPNS, 1))
        fail("have datagrams stamped with their time of arrival", "");
    set_option(fd(), SOL_SOCKET, SO_RXQ_OVFL, 1);
    bind_and_join(fd(), from, interface);
}

std::int64_t UdpReceiver::receive(std::int64_t timeout_ns, const Callback& on_datagram,
                                  int wake_fd) {
    wait(timeout_ns, wake_fd);
    const std::int64_t now = steady_now_ns();
    std::int64_t last_arrival = now;
    const bool is_drained =
        read_batch(on_datagram, last_arrival) < static_cast<int>(kBatch);
    return is_drained ? now - kDeliveryNs : last_arrival;
}

void UdpReceiver::read(const Callback& on_datagram) {
    std::int64_t last_arrival = 0;
    read_batch(on_datagram, last_arrival);
}

void UdpReceiver::wait(std::int64_t timeout_ns, int wake_fd) const {
    std::array<pollfd, 2> readable{{{fd(), POLLIN, 0}, {wake_fd, POLLIN, 0}}};
    const std::int64_t wait_ns = std::max<std::int64_t>(timeout_ns, 0);
    const timespec timeout{static_cast<time_t>(wait_ns / kNsPerSecond),
                           static_cast<long>(wait_ns % kNsPerSecond)};
    ppoll(readable.data(), readable.size(), &timeout, nullptr);
}

// Calls `on_datagram` for the datagrams that are there, at most kBatch. Returns how many
// there were, or -1 if there was none.
int UdpReceiver::read_batch(const Callback& on_datagram, std::int64_t& last_arrival) {
    if (arrival_time_ == ArrivalTime::kStampOfKernel)
        civil_minus_steady_ = civil_minus_steady_ns();
    const int count = recvmmsg(fd(), messages_.data(), kBatch, MSG_DONTWAIT, nullptr);
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "cannot receive");
    for (int i = 0; i < count; ++i) {
        mmsghdr& message = messages_[static_cast<std::size_t>(i)];
        last_arrival = read_arrival(message.msg_hdr);
        message.msg_hdr.msg_controllen = slots_.front().control.size();  // for the next
        on_datagram(last_arrival,
                    static_cast<std::uint8_t*>(message.msg_hdr.msg_iov->iov_base),
                    message.msg_len);
    }
    return count;
}

// Returns the arrival time of the datagram. Also stores the number of lost datagrams that
// the message has.
std::int64_t UdpReceiver::read_arrival(msghdr& message) {
    const std::int64_t now = steady_now_ns();
    std::int64_t arrival = now;
    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr;
         item = CMSG_NXTHDR(&message, item)) {
        if (item->cmsg_level != SOL_SOCKET) continue;
        if (item->cmsg_type == SCM_TIMESTAMPNS) {
            timespec stamp{};
            std::memcpy(&stamp, CMSG_DATA(item), sizeof stamp);
            arrival = to_ns(stamp) - civil_minus_steady_;
        } else if (item->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&lost_, CMSG_DATA(item), sizeof lost_);
        }
    }
    return std::min(arrival, now);
}
