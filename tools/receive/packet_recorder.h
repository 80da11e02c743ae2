#ifndef KESTAN_TOOLS_RECEIVE_PACKET_RECORDER_H
#define KESTAN_TOOLS_RECEIVE_PACKET_RECORDER_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/model/file_descriptor.h"
#include "tools/receive/datagram_packets.h"

// Writes transport packets to a file as they come, 188 bytes each. If the file cannot
// take more, it ends with a whole packet, and all later packets are left out. One thread.
class PacketRecorder {
public:
    // Replaces the file. Throws std::system_error if it cannot be opened.
    explicit PacketRecorder(const std::string& path);

    void write(const DatagramPackets& packets);

    // Writes all packets so far to the file. Throws std::system_error, now and at each
    // later call, if any of them could not be written.
    void flush();

private:
    void write_out();

    FileDescriptor fd_;
    std::vector<std::uint8_t> waiting_;
    std::uint64_t bytes_ = 0;  // in the file
    int error_ = 0;            // errno of the write that failed
};

#endif
