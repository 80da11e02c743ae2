#ifndef KESTAN_TOOLS_KESTAN_INSERT_INPUT_H
#define KESTAN_TOOLS_KESTAN_INSERT_INPUT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "dvb/ts_packet.h"
#include "tools/receive/udp_receiver.h"

// The stream to insert into: datagrams of an address, or the packets of standard input,
// in datagrams of seven. One thread.
class Input {
public:
    // `address` is ADDRESS:PORT or kPipe. Throws std::runtime_error with a message that
    // says what to do.
    Input(const std::string& address, const std::string& interface);

    // Returns what becomes readable when datagrams are there.
    [[nodiscard]] int fd() const;

    // Calls `on_datagram` for the datagrams that are there; a few, so that the caller can
    // look at other streams. Standard input without a datagram makes it wait. Throws
    // std::system_error.
    void read(const UdpReceiver::Callback& on_datagram);

    // Returns whether standard input has ended.
    [[nodiscard]] bool is_over() const { return is_over_; }

    // Returns the number of datagrams that the kernel has dropped.
    [[nodiscard]] std::uint32_t lost() const { return receiver_ ? receiver_->lost() : 0; }

private:
    static constexpr std::size_t kPacketsPerDatagram = 7;

    void read_pipe(const UdpReceiver::Callback& on_datagram);

    std::optional<UdpReceiver> receiver_;  // no value: standard input
    std::array<std::uint8_t, kPacketsPerDatagram * kTsPacketSize> datagram_{};
    std::size_t filled_ = 0;  // bytes of it
    bool is_over_ = false;
};

#endif
