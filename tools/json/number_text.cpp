#include "tools/json/number_text.h"

#include <fmt/format.h>

#include <charconv>
#include <iterator>
#include <system_error>

#include <boost/algorithm/hex.hpp>

std::optional<std::int64_t> parse_number(std::string_view text) {
    const bool is_hex = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (is_hex) text.remove_prefix(2);
    if (text.empty() || text.front() == '-') return std::nullopt;
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, is_hex ? 16 : 10);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

std::optional<std::int64_t> parse_argument(std::string_view text) {
    const bool has_leading_zero =
        text.size() > 1 && text[0] == '0' && text[1] != 'x' && text[1] != 'X';
    return has_leading_zero ? std::nullopt : parse_number(text);
}

std::string hex_number(std::int64_t value, int digits) {
    return fmt::format("0x{:0{}X}", value, digits);
}

std::string pid_text(std::int32_t pid) {
    return hex_number(pid, 4);
}

std::string to_hex(std::string_view bytes) {
    std::string text;
    boost::algorithm::hex_lower(bytes, std::back_inserter(text));
    return text;
}

std::optional<std::string> from_hex(std::string_view text) {
    std::string bytes;
    try {
        while (!text.empty()) {
            const std::size_t size = text.front() == ' ' ? 1 : 2;
            const std::string_view digits = text.substr(0, size);
            if (size == 2) boost::algorithm::unhex(digits, std::back_inserter(bytes));
            text.remove_prefix(digits.size());
        }
    } catch (const boost::algorithm::hex_decode_error&) {
        return std::nullopt;
    }
    return bytes;
}
