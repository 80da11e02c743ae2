#ifndef KESTAN_TOOLS_KESTAN_INSERT_OUTPUT_H
#define KESTAN_TOOLS_KESTAN_INSERT_OUTPUT_H

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/model/file_descriptor.h"
#include "tools/receive/datagram_packets.h"

// Where the stream goes: an address, or standard output. One thread.
class Output {
public:
    // `address` is ADDRESS:PORT or kPipe. Throws std::runtime_error with a message that
    // says what to do.
    Output(const std::string& address, const std::string& interface, int ttl);

    // Sends a datagram, `packets` being those in it. To standard output go the packets
    // alone, 188 bytes each. Returns whether it was sent; errno says why not. Throws
    // std::system_error if standard output takes no more.
    bool send(const std::uint8_t* datagram, std::size_t size,
              const std::optional<DatagramPackets>& packets);

private:
    void use_interface(const std::string& interface) const;
    static bool write(const std::uint8_t* data, std::size_t size);

    sockaddr_in to_{};
    FileDescriptor socket_;  // none: standard output
};

#endif
