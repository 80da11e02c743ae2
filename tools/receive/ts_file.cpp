#include "tools/receive/ts_file.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kStrides[] = {188, 192, 204};
constexpr std::size_t kLongestStride = 204;

// By chance, one byte in 256 equals a sync byte. This many sync bytes in step are taken
// for packets.
constexpr std::size_t kPacketsToBeSure = 5;
constexpr std::size_t kLookAhead = kPacketsToBeSure * kLongestStride;
constexpr std::size_t kReadSize = std::size_t{1024} * 1024;

}  // namespace

TsFile::TsFile(std::istream& in, std::string name, std::vector<std::uint8_t> head)
    : in_(in), name_(std::move(name)), buffer_(std::move(head)) {}

const std::uint8_t* TsFile::next() {
    fill();
    if (stride_ == 0 || !is_sync(0)) find_packets();
    if (left() < kTsPacketSize) {
        is_cut_ = stride_ != 0 && left() != 0;
        skip(left());
        return nullptr;
    }
    const std::uint8_t* const packet = &buffer_[position_];
    ++packets_;
    position_ += std::min(stride_, left());
    return packet;
}

void TsFile::fill() {
    if (left() > kLookAhead || !in_) return;
    buffer_.erase(buffer_.begin(),
                  buffer_.begin() + static_cast<std::ptrdiff_t>(position_));
    position_ = 0;
    const std::size_t kept = buffer_.size();
    buffer_.resize(kept + kReadSize);
    in_.read(reinterpret_cast<char*>(&buffer_[kept]), kReadSize);
    if (in_.bad()) throw std::system_error(errno, std::generic_category(), name_);
    buffer_.resize(kept + static_cast<std::size_t>(in_.gcount()));
}

bool TsFile::is_sync(std::size_t offset) const {
    return offset < left() && buffer_[position_ + offset] == kSyncByte;
}

std::size_t TsFile::stride_at(std::size_t offset) const {
    if (!is_sync(offset) || left() - offset < kTsPacketSize) return 0;
    const auto fits = [&](std::size_t stride) {
        for (std::size_t i = 1; i < kPacketsToBeSure; ++i) {
            const std::size_t next = offset + i * stride;
            if (next < left() && !is_sync(next)) return false;
        }
        return true;
    };
    const auto found = std::find_if(std::begin(kStrides), std::end(kStrides), fits);
    return found == std::end(kStrides) ? 0 : *found;
}

void TsFile::find_packets() {
    for (stride_ = 0; left() != 0; fill()) {
        const std::size_t end = in_ ? left() - kLookAhead : left();
        std::size_t offset = 0;
        for (; offset < end; ++offset) {
            stride_ = stride_at(offset);
            if (stride_ != 0) break;
        }
        const bool is_time_stamp = packets_ == 0 && offset + kTsPacketSize == stride_;
        if (is_time_stamp) {
            position_ += offset;
        } else {
            skip(offset);
        }
        if (stride_ != 0) return;
    }
}

void TsFile::skip(std::size_t bytes) {
    position_ += bytes;
    stray_bytes_ += bytes;
}
