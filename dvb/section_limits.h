#ifndef KESTAN_DVB_SECTION_LIMITS_H
#define KESTAN_DVB_SECTION_LIMITS_H

#include <cstddef>

// How much a section and a table can carry. Sizes are in bytes.

// ISO/IEC 13818-1, 2.4.4, and ETSI EN 300 468, 5.1.1
constexpr std::size_t kMaxSectionSize = 1024;

constexpr std::size_t kMaxPrivateSectionSize = 4096;  // ISO/IEC 13818-1, 2.4.4.11
constexpr std::size_t kMaxSections = 256;             // section_number has 8 bits
constexpr std::size_t kCrc32Size = 4;                 // ISO/IEC 13818-1, annex A
constexpr std::size_t kMaxDescriptorData = 255;       // descriptor_length has 8 bits

constexpr std::size_t kDescriptorHeaderSize = 2;  // ISO/IEC 13818-1, 2.6.1
constexpr std::size_t kCatHeaderSize = 8;         // ISO/IEC 13818-1, 2.4.4.6
constexpr std::size_t kPmtHeaderSize = 12;        // ISO/IEC 13818-1, 2.4.4.8
constexpr std::size_t kPmtStreamHeaderSize = 5;
constexpr std::size_t kSdtHeaderSize = 11;  // ETSI EN 300 468, 5.2.3
constexpr std::size_t kSdtServiceHeaderSize = 5;

// The bytes between a section's header and its CRC_32.
constexpr std::size_t section_capacity(std::size_t header_size) {
    return kMaxSectionSize - header_size - kCrc32Size;
}

// Counts the sections that a table's entries need (descriptors of a CAT, services of an
// SDT). An entry is never split: it goes into the current section if it fits, and else
// into a new one.
class SectionFill {
public:
    explicit constexpr SectionFill(std::size_t capacity) : capacity_(capacity) {}

    // Places an entry. Returns true if it begins a new section. REQUIRES: `entry_size` is
    // at most the capacity.
    constexpr bool add(std::size_t entry_size) {
        if (used_ + entry_size <= capacity_) {
            used_ += entry_size;
            return false;
        }
        used_ = entry_size;
        ++sections_;
        return true;
    }

    // Returns the sections so far. A table without entries has one.
    [[nodiscard]] constexpr std::size_t sections() const { return sections_; }

private:
    std::size_t capacity_;
    std::size_t used_ = 0;
    std::size_t sections_ = 1;
};

#endif
