#ifndef KESTAN_TOOLS_JSON_NUMBER_TEXT_H
#define KESTAN_TOOLS_JSON_NUMBER_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Numbers as people write them: "256" or "0x0100". A leading zero does not make a number
// octal.

// Returns nullopt if the text is no such number or a negative one.
[[nodiscard]] std::optional<std::int64_t> parse_number(std::string_view text);

// The same for a number in a command line: a decimal number with a leading zero, as
// "0100", may be meant as hexadecimal and is none.
[[nodiscard]] std::optional<std::int64_t> parse_argument(std::string_view text);

// Writes "0x" and at least `digits` hexadecimal digits. REQUIRES: digits is at most 16.
[[nodiscard]] std::string hex_number(std::int64_t value, int digits);

// Writes a PID as four hexadecimal digits: "0x0100".
[[nodiscard]] std::string pid_text(std::int32_t pid);

// Writes each byte as two hexadecimal digits.
[[nodiscard]] std::string to_hex(std::string_view bytes);

// Reads bytes of two hexadecimal digits each, with blanks between bytes or without.
// Returns nullopt if the text is anything else.
[[nodiscard]] std::optional<std::string> from_hex(std::string_view text);

#endif
