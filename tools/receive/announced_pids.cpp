#include "tools/receive/announced_pids.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

// ISO/IEC 13818-1, 2.4.4.8 and 2.6.16
constexpr std::ptrdiff_t kPmtFixedSize = 4;  // PCR_PID, program_info_length
constexpr std::size_t kCaFixedSize = 4;      // CA_system_id, CA_PID

using OnPid = std::function<void(std::uint16_t)>;

// A part of a section.
struct Part {
    // Cuts off the first bytes, at most `size`.
    Part take(std::size_t size) {
        const Part taken{first, first + std::min(size, left())};
        first = taken.end;
        return taken;
    }

    [[nodiscard]] std::size_t left() const {
        return static_cast<std::size_t>(end - first);
    }

    const std::uint8_t* first;
    const std::uint8_t* end;
};

bool is_in_force(const Section& section, std::uint8_t table_id) {
    return section.table_id() == table_id && section.is_long() && section.is_valid() &&
           section.is_current();
}

Part body_of(const Section& section) {
    return {section.body(), section.body() + section.body_size()};
}

std::uint16_t pid_at(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>((bytes[0] & 0x1F) << 8 | bytes[1]);
}

std::size_t length_at(const std::uint8_t* bytes) {
    return (bytes[0] & 0x0FU) << 8 | bytes[1];
}

bool is_stream_pid(std::uint16_t pid) {
    return pid >= kFirstStreamPid && pid < kNullPid;
}

void name(std::uint16_t pid, const OnPid& on_pid) {
    if (is_stream_pid(pid)) on_pid(pid);
}

void read_ca_pids(Part descriptors, const OnPid& on_pid) {
    while (descriptors.left() >= kDescriptorHeaderSize) {
        const Part header = descriptors.take(kDescriptorHeaderSize);
        const Part data = descriptors.take(header.first[1]);
        if (header.first[0] == kCaTag && data.left() >= kCaFixedSize)
            name(pid_at(data.first + 2), on_pid);
    }
}

void read_pmt(Part body, const OnPid& on_pid) {
    if (body.left() < kPmtFixedSize) return;
    const Part fixed = body.take(kPmtFixedSize);
    read_ca_pids(body.take(length_at(fixed.first + 2)), on_pid);
    constexpr std::size_t header_size = table_info(TableKind::kPmt).entry_header_size;
    while (body.left() >= header_size) {
        const Part header = body.take(header_size);
        name(pid_at(header.first + 1), on_pid);
        read_ca_pids(body.take(length_at(header.first + 3)), on_pid);
    }
}

}  // namespace

bool PatRecord::push(const Section& section) {
    if (!is_in_force(section, kPatTableId)) return false;
    std::uint32_t crc = 0;
    std::memcpy(&crc, section.begin() + section.size() - kCrc32Size, kCrc32Size);
    const std::optional<std::uint32_t> before = crcs_[section.number()];
    const bool is_new = version_ != section.version() || (before && before != crc);
    if (is_new) *this = {};
    version_ = section.version();
    crcs_[section.number()] = crc;
    constexpr std::size_t program_size = table_info(TableKind::kPat).entry_header_size;
    for (Part body = body_of(section); body.left() >= program_size;) {
        const std::uint8_t* const program = body.take(program_size).first;
        const bool announces_network = program[0] == 0 && program[1] == 0;
        const std::uint16_t pid = pid_at(program + 2);
        if (!announces_network && is_stream_pid(pid)) pmt_pids_.set(pid);
    }
    return is_new;
}

bool PatRecord::contradicts(const PatRecord& other) const {
    if (!version_ || version_ != other.version_) return false;
    for (std::size_t i = 0; i < kMaxSections; ++i) {
        if (crcs_[i] && other.crcs_[i] && crcs_[i] != other.crcs_[i]) return true;
    }
    return false;
}

void read_named_pids(const Section& section, const OnPid& on_pid) {
    if (is_in_force(section, kPmtTableId)) read_pmt(body_of(section), on_pid);
    if (is_in_force(section, kCatTableId)) read_ca_pids(body_of(section), on_pid);
}
