#ifndef KESTAN_TOOLS_RECEIVE_SECTION_H
#define KESTAN_TOOLS_RECEIVE_SECTION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

// A view of one section (ISO/IEC 13818-1, 2.4.4.11), whose bytes must outlive it. A long
// section has a table_id_extension, a version, numbers and a CRC_32; a short one, such as
// a TDT's, has none of these.
class Section {
public:
    static constexpr std::size_t kLengthEnd = 3;  // section_length counts what follows

    // Returns the section that begins at `bytes`, or nullopt if its end is not among the
    // `left` bytes there.
    [[nodiscard]] static std::optional<Section> find(const std::uint8_t* bytes,
                                                     std::size_t left);

    // Returns whether it is a short section, or a long one that is long enough and has
    // a valid CRC_32.
    [[nodiscard]] bool is_valid() const;

    [[nodiscard]] bool is_long() const { return (bytes_[1] & 0x80) != 0; }
    [[nodiscard]] std::uint8_t table_id() const { return bytes_[0]; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] const std::uint8_t* begin() const { return bytes_; }
    [[nodiscard]] std::string_view bytes() const {
        return {reinterpret_cast<const char*>(bytes_), size_};
    }

    // Returns the bytes between the header and the CRC_32, if it has one.
    // REQUIRES: is_valid().
    [[nodiscard]] const std::uint8_t* body() const;
    [[nodiscard]] std::size_t body_size() const;

    // REQUIRES: is_long() and is_valid().
    [[nodiscard]] std::uint16_t extension() const {
        return static_cast<std::uint16_t>(bytes_[3] << 8 | bytes_[4]);
    }
    [[nodiscard]] std::uint8_t version() const { return bytes_[5] >> 1 & 0x1F; }
    [[nodiscard]] bool is_current() const { return (bytes_[5] & 0x01) != 0; }
    [[nodiscard]] std::uint8_t number() const { return bytes_[6]; }
    [[nodiscard]] std::uint8_t last_number() const { return bytes_[7]; }

private:
    Section(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}

    const std::uint8_t* bytes_;
    std::size_t size_;
};

#endif
