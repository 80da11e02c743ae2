#ifndef KESTAN_TOOLS_RECEIVE_PACKET_RECORDER_H
#define KESTAN_TOOLS_RECEIVE_PACKET_RECORDER_H

#include <fstream>
#include <string>

#include "tools/receive/datagram_packets.h"

// Writes transport packets to a file as they come, 188 bytes each. One thread.
class PacketRecorder {
public:
    // Replaces the file. Throws std::runtime_error if it cannot be written.
    explicit PacketRecorder(const std::string& path);

    void write(const DatagramPackets& packets);

    // Writes all packets so far to the file. Throws std::runtime_error if any of them
    // could not be written.
    void flush();

private:
    std::string path_;
    std::ofstream file_;
};

#endif
