#ifndef KESTAN_TOOLS_JSON_NUMBER_TEXT_H
#define KESTAN_TOOLS_JSON_NUMBER_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Numbers as people write them in this field: "256" or "0x0100". A leading zero does not
// make a number octal.

// Nothing unless the whole text is such a number, not negative.
[[nodiscard]] std::optional<std::int64_t> parse_number(std::string_view text);

// "0x" and at least `digits` hexadecimal digits.
[[nodiscard]] std::string hex_number(std::int64_t value, int digits);

// Bytes as two hexadecimal digits each.
[[nodiscard]] std::string to_hex(std::string_view bytes);

// The bytes of an even number of hexadecimal digits; blanks may stand between bytes.
// Nothing when the text is anything else.
[[nodiscard]] std::optional<std::string> from_hex(std::string_view text);

#endif
