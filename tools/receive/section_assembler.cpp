#include "tools/receive/section_assembler.h"

#include <bitstream/mpeg/psi/psi.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "dvb/section_limits.h"
#include "dvb/ts_packet.h"
#include "tools/receive/packet_flags.h"

namespace {

constexpr std::size_t kLongHeaderSize = 8;  // ISO/IEC 13818-1, 2.4.4.11

}  // namespace

// The bytes of a packet that have not been added to a section.
struct SectionAssembler::Bytes {
    // Cuts off the first ones, at most `size`.
    Bytes take(std::uint8_t size) {
        const Bytes taken{first, std::min(size, left)};
        first += taken.left;
        left = static_cast<std::uint8_t>(left - taken.left);
        return taken;
    }

    const std::uint8_t* first;
    std::uint8_t left;
};

std::optional<Section> Section::find(const std::uint8_t* bytes, std::size_t left) {
    if (left < kLengthEnd) return std::nullopt;
    const std::size_t size = kLengthEnd + ((bytes[1] & 0x0FU) << 8 | bytes[2]);
    if (size > left) return std::nullopt;
    return Section(bytes, size);
}

bool Section::is_valid() const {
    if (!is_long()) return true;
    // psi_check_crc trusts the length.
    return size_ >= kLongHeaderSize + kCrc32Size && psi_check_crc(bytes_);
}

const std::uint8_t* Section::body() const {
    return bytes_ + (is_long() ? kLongHeaderSize : kLengthEnd);
}

std::size_t Section::body_size() const {
    return is_long() ? size_ - kLongHeaderSize - kCrc32Size : size_ - kLengthEnd;
}

void SectionAssembler::push(const std::uint8_t* packet, Continuity continuity,
                            std::int64_t now) {
    if (continuity == Continuity::kRepeat) return;
    if (continuity != Continuity::kInOrder) discard();
    if (!has_payload(packet)) return;
    const std::size_t offset = payload_offset(packet);
    if (offset >= kTsPacketSize) {
        discard();
        return;
    }
    Bytes bytes{packet + offset, static_cast<std::uint8_t>(kTsPacketSize - offset)};
    if (!starts_section(packet)) {
        if (in_progress_ != nullptr) add(bytes, now);
        return;
    }
    const std::uint8_t pointer_field = *bytes.take(1).first;
    Bytes remainder = bytes.take(pointer_field);
    if (in_progress_ != nullptr && remainder.left > 0) add(remainder, now);
    discard();  // it has no end: the next section begins here
    while (bytes.left > 0) add(bytes, now);
}

void SectionAssembler::discard() {
    psi_assemble_reset(&in_progress_, &received_);
}

// Adds bytes to the section in progress, or begins one; takes those up to its end from
// `bytes`.
void SectionAssembler::add(Bytes& bytes, std::int64_t now) {
    if (in_progress_ == nullptr) begun_ = now;
    const std::unique_ptr<std::uint8_t, decltype(&std::free)> section(
        psi_assemble_payload(&in_progress_, &received_, &bytes.first, &bytes.left),
        &std::free);
    if (!section) return;
    on_section_(*Section::find(section.get(), kMaxPrivateSectionSize), begun_);
}

void PidSections::push(const std::uint8_t* packet, std::int64_t now) {
    if (has_transport_error(packet)) return;
    assembler_.push(packet, continuity_.push(packet), now);
}
