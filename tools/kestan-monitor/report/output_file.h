#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_OUTPUT_FILE_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_OUTPUT_FILE_H

#include <cstdint>
#include <fstream>
#include <string>

#include "tools/receive/datagram_packets.h"

// Replaces the file `path` with `text` in one step: a reader sees the old content or the
// new content. First writes the text to a file in the same folder whose name ends with
// ".new". Throws std::runtime_error.
void replace_file(const std::string& path, const std::string& text);

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
