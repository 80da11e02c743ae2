#ifndef KESTAN_TOOLS_RECEIVE_TS_FILE_H
#define KESTAN_TOOLS_RECEIVE_TS_FILE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "dvb/ts_packet.h"

// Reads the packets of a transport-stream file: 188 bytes each, or these within 192 bytes
// (a time stamp before each) or 204 (a check code after each). Finds the packets anew
// after bytes that are none. Memory does not grow with the file. One thread.
class TsFile {
public:
    // Raises std::system_error when the file cannot be opened.
    explicit TsFile(const std::string& path);

    // The next packet, kTsPacketSize bytes that last until the next call; null at the
    // end. Raises std::system_error when the file cannot be read.
    [[nodiscard]] const std::uint8_t* next();

    [[nodiscard]] std::uint64_t packets() const { return packets_; }

    // Bytes that belong to no packet so far, among them those of a packet that the end of
    // the file cuts.
    [[nodiscard]] std::uint64_t stray_bytes() const { return stray_bytes_; }

    // The file ends in the middle of a packet. Known at the end.
    [[nodiscard]] bool is_cut() const { return is_cut_; }

private:
    void fill();
    [[nodiscard]] std::size_t left() const { return buffer_.size() - position_; }
    [[nodiscard]] bool is_sync(std::size_t offset) const;

    // The distance between packets if one begins `offset` bytes from here, 0 if not.
    [[nodiscard]] std::size_t stride_at(std::size_t offset) const;

    void find_packets();
    void skip(std::size_t bytes);

    std::string path_;
    std::ifstream file_;
    std::vector<std::uint8_t> buffer_;
    std::size_t position_ = 0;  // in the buffer, of the next packet
    std::size_t stride_ = 0;    // 0 until packets have been found
    std::array<std::uint8_t, kTsPacketSize> packet_{};
    std::uint64_t packets_ = 0;
    std::uint64_t stray_bytes_ = 0;
    bool is_cut_ = false;
};

#endif
