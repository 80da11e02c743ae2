#include "tools/json/number_text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace {

template <typename Number>
std::optional<Number> parse_whole(std::string_view text, int base) {
    Number value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

}  // namespace

std::optional<std::int64_t> parse_number(std::string_view text) {
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (hexadecimal) text.remove_prefix(2);
    if (text.empty() || text.front() == '-') return std::nullopt;
    return parse_whole<std::int64_t>(text, hexadecimal ? 16 : 10);
}

std::string hex_number(std::int64_t value, int digits) {
    char text[20];
    const auto result = std::to_chars(std::begin(text), std::end(text), value, 16);
    std::string hex(std::begin(text), result.ptr);
    std::transform(hex.begin(), hex.end(), hex.begin(),
                   [](char digit) { return digit >= 'a' ? digit - 'a' + 'A' : digit; });
    const auto width = static_cast<std::size_t>(digits);
    return "0x" + std::string(width - std::min(width, hex.size()), '0') + hex;
}

std::string to_hex(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<std::uint8_t>(byte) >> 4];
        text += digits[static_cast<std::uint8_t>(byte) & 0x0F];
    }
    return text;
}

std::optional<std::string> from_hex(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        if (text.front() == ' ') {
            text.remove_prefix(1);
            continue;
        }
        if (text.size() < 2) return std::nullopt;
        const auto byte = parse_whole<std::uint8_t>(text.substr(0, 2), 16);
        if (!byte) return std::nullopt;
        bytes += static_cast<char>(*byte);
        text.remove_prefix(2);
    }
    return bytes;
}
