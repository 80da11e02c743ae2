#ifndef KESTAN_DVB_SECTION_LIMITS_H
#define KESTAN_DVB_SECTION_LIMITS_H

#include <cstddef>

#include "dvb/ts_packet.h"

// How much a section and a table can carry. Sizes are in bytes.

// ISO/IEC 13818-1, 2.4.4, and ETSI EN 300 468, 5.1.1
constexpr std::size_t kMaxSectionSize = 1024;

constexpr std::size_t kMaxPrivateSectionSize = 4096;  // ISO/IEC 13818-1, 2.4.4.11
constexpr std::size_t kMaxSections = 256;             // section_number has 8 bits
constexpr std::size_t kCrc32Size = 4;                 // ISO/IEC 13818-1, annex A
constexpr std::size_t kMaxDescriptorData = 255;       // descriptor_length has 8 bits

constexpr std::size_t kDescriptorHeaderSize = 2;     // ISO/IEC 13818-1, 2.6.1
constexpr std::size_t kPatProgramsPerSection = 100;  // Kestan's choice

// The bytes between a section's header and its CRC_32.
constexpr std::size_t section_capacity(std::size_t header_size) {
    return kMaxSectionSize - header_size - kCrc32Size;
}

// Fills the sections of a table with its entries (descriptors of a CAT, services of an
// SDT). An entry is never split: it goes into the current section if it fits or if it is
// the first one there, and else into a new section.
class SectionFill {
public:
    explicit constexpr SectionFill(std::size_t header_size)
        : SectionFill(header_size, section_capacity(header_size)) {}

    // Fills each section with at most `capacity` bytes of entries.
    constexpr SectionFill(std::size_t header_size, std::size_t capacity)
        : header_size_(header_size), capacity_(capacity) {}

    // Places an entry. Returns true if it begins a new section.
    constexpr bool add(std::size_t entry_size) {
        const bool fits = used_ == 0 || used_ + entry_size <= capacity_;
        if (!fits) {
            finished_packets_ += packets_of_current();
            used_ = 0;
            ++sections_;
        }
        used_ += entry_size;
        return !fits;
    }

    // Returns the sections so far. A table without entries has one.
    [[nodiscard]] constexpr std::size_t sections() const { return sections_; }

    // Returns the size of the entries in the current section.
    [[nodiscard]] constexpr std::size_t used() const { return used_; }

    // Returns the transport packets of the sections so far. Each section begins a new
    // packet, which has a pointer_field (ISO/IEC 13818-1, 2.4.4.1).
    [[nodiscard]] constexpr std::size_t packets() const {
        return finished_packets_ + packets_of_current();
    }

private:
    [[nodiscard]] constexpr std::size_t packets_of_current() const {
        constexpr std::size_t pointer_field_size = 1;
        constexpr std::size_t payload_size = kTsPacketSize - kTsHeaderSize;
        const std::size_t size = pointer_field_size + header_size_ + used_ + kCrc32Size;
        return (size + payload_size - 1) / payload_size;
    }

    std::size_t header_size_;
    std::size_t capacity_;
    std::size_t used_ = 0;
    std::size_t sections_ = 1;
    std::size_t finished_packets_ = 0;
};

#endif
