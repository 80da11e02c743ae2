#ifndef KESTAN_TOOLS_RECEIVE_UDP_RECEIVER_H
#define KESTAN_TOOLS_RECEIVE_UDP_RECEIVER_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/model/file_descriptor.h"

// Parses "ADDRESS:PORT", an IPv4 address and a UDP port. Throws std::runtime_error, with
// a message for the user, if the text is anything else.
[[nodiscard]] sockaddr_in parse_endpoint(const std::string& text);

// What a datagram's time of arrival is.
enum class ArrivalTime : std::uint8_t {
    kStampOfKernel,  // for programs that measure
    kReading,        // for programs that pass datagrams on: stamps cost time
};

// Receives the datagrams of one address with their times of arrival, which are
// nanoseconds of the steady clock.
//
// The kernel stamps a datagram when it comes (SO_TIMESTAMPNS), so that neither the wait
// in the socket nor this process's scheduling is measured. Its stamps are of the civil
// clock and are converted. If the civil clock is set, only the datagrams that are in the
// socket at that moment get a wrong time. One thread.
class UdpReceiver {
public:
    // Receives what is sent to `from`: an address of this machine, or a multicast group,
    // which is joined. `interface` names the interface that the stream comes in by; if it
    // is empty, the routes decide. Throws std::runtime_error with a message that says
    // what to do.
    UdpReceiver(const sockaddr_in& from, const std::string& interface,
                ArrivalTime arrival_time = ArrivalTime::kStampOfKernel);

    // Takes a datagram, which may be changed and lasts until the call returns.
    using Callback =
        std::function<void(std::int64_t arrival, std::uint8_t* data, std::size_t)>;

    // Waits up to `timeout_ns` for datagrams and calls `on_datagram` for those that are
    // there, at most 64. A signal ends the wait. So does `wake_fd`, unless it is -1, when
    // it becomes readable. Throws std::system_error if the socket fails.
    //
    // Returns a time: `on_datagram` has been called for all datagrams that came before
    // it.
    std::int64_t receive(std::int64_t timeout_ns, const Callback& on_datagram,
                         int wake_fd = -1);

    // Calls `on_datagram` for the datagrams that are there, at most 64, and does not
    // wait: for a program that waits for fd() and others to become readable. Throws
    // std::system_error if the socket fails.
    void read(const Callback& on_datagram);
    [[nodiscard]] int fd() const { return fd_.get(); }

    // Returns how many datagrams the kernel had dropped, because the socket's buffer was
    // full, when the last received one came.
    [[nodiscard]] std::uint32_t lost() const { return lost_; }

private:
    void wait(std::int64_t timeout_ns, int wake_fd) const;
    int read_batch(const Callback& on_datagram, std::int64_t& last_arrival);
    [[nodiscard]] std::int64_t read_arrival(msghdr& message);

    static constexpr std::size_t kBatch = 64;

    struct Slot {
        alignas(cmsghdr) std::array<char, 128> control;
        iovec buffer;
    };

    FileDescriptor fd_;
    ArrivalTime arrival_time_;
    std::uint32_t lost_ = 0;
    std::int64_t civil_minus_steady_ = 0;
    std::vector<std::uint8_t> buffers_;
    std::array<Slot, kBatch> slots_{};
    std::array<mmsghdr, kBatch> messages_{};  // each points into its slot
};

#endif
