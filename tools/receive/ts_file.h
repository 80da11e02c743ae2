#ifndef KESTAN_TOOLS_RECEIVE_TS_FILE_H
#define KESTAN_TOOLS_RECEIVE_TS_FILE_H

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "dvb/ts_packet.h"

// Reads the packets of a transport-stream file: 188 bytes each, or these within 192 bytes
// (a time stamp before each) or 204 (a check code after each). It skips bytes that belong
// to no packet. Memory does not grow with the file. One thread.
class TsFile {
public:
    // Reads from `in`, which must outlive this. `name` is the file's name in errors.
    // `head` has the bytes that were already read from its start.
    TsFile(std::istream& in, std::string name, std::vector<std::uint8_t> head = {});

    // Returns the next packet, kTsPacketSize bytes that last until the next call, or null
    // at the end. Raises std::system_error if the file cannot be read.
    [[nodiscard]] const std::uint8_t* next();

    [[nodiscard]] std::uint64_t packets() const { return packets_; }

    // Returns the number of bytes so far that belong to no packet. A packet that the end
    // of the file cuts counts among them.
    [[nodiscard]] std::uint64_t stray_bytes() const { return stray_bytes_; }

    // Returns whether the file ends in the middle of a packet. REQUIRES: next() has
    // returned null.
    [[nodiscard]] bool is_cut() const { return is_cut_; }

private:
    void fill();
    [[nodiscard]] std::size_t left() const { return buffer_.size() - position_; }
    [[nodiscard]] bool is_sync(std::size_t offset) const;

    // Returns the distance between packets if one begins `offset` bytes from here, or 0.
    [[nodiscard]] std::size_t stride_at(std::size_t offset) const;

    void find_packets();
    void skip(std::size_t bytes);

    std::istream& in_;
    std::string name_;
    std::vector<std::uint8_t> buffer_;
    std::size_t position_ = 0;  // in the buffer, of the next packet
    std::size_t stride_ = 0;    // 0 until packets have been found
    std::uint64_t packets_ = 0;
    std::uint64_t stray_bytes_ = 0;
    bool is_cut_ = false;
};

#endif
