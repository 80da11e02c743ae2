#ifndef KESTAN_TOOLS_RECEIVE_UDP_RECEIVER_H
#define KESTAN_TOOLS_RECEIVE_UDP_RECEIVER_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// An IPv4 address and a UDP port, from "ADDRESS:PORT". Anything else throws
// std::runtime_error, with a text for people.
[[nodiscard]] sockaddr_in parse_endpoint(const std::string& text);

// Receives the datagrams of one address with their times of arrival.
//
// The kernel stamps a datagram when it comes (SO_TIMESTAMPNS), so that neither the wait
// in the socket nor this process's scheduling is measured. Its stamps are of the civil
// clock and are given as nanoseconds of the steady one: setting the civil clock moves at
// most what was under way. One thread.
class UdpReceiver {
public:
    // Receives what is sent to `from`: an address of this machine, or a multicast group,
    // which is joined. `interface` is the one that it comes by; empty leaves it to the
    // routes. Throws std::runtime_error with a text that says what to do.
    UdpReceiver(const sockaddr_in& from, const std::string& interface);
    ~UdpReceiver();
    UdpReceiver(const UdpReceiver&) = delete;
    UdpReceiver& operator=(const UdpReceiver&) = delete;

    using Callback =
        std::function<void(std::int64_t arrival, const std::uint8_t* data, std::size_t)>;

    // Waits up to `timeout_ns` for datagrams and gives those that are there, at most some
    // dozens. A signal ends the wait, and so does `wake_fd`, if there is one, when it can
    // be read. Throws std::system_error.
    //
    // Returns a time: all datagrams that came up to then have been given.
    std::int64_t receive(std::int64_t timeout_ns, const Callback& on_datagram,
                         int wake_fd = -1);

    // Datagrams that the kernel had to drop because the socket's buffer was full, as far
    // as the ones received tell.
    [[nodiscard]] std::uint32_t lost() const { return lost_; }

private:
    void compare_clocks();
    void wait(std::int64_t timeout_ns, int wake_fd) const;
    int read_batch(const Callback& on_datagram, std::int64_t& last_arrival);
    [[nodiscard]] std::int64_t read_arrival(msghdr& message);

    int fd_;
    std::uint32_t lost_ = 0;
    std::int64_t civil_minus_steady_ = 0;
    std::vector<std::uint8_t> buffers_;
};

#endif
