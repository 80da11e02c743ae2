#include "tools/json/shown_text.h"

#include <clocale>
#include <cstdint>
#include <cwchar>

#include "tools/json/number_text.h"

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr int kMostMarks = 4;

struct Character {
    char32_t code;
    std::size_t bytes;
    bool is_valid;
};

// REQUIRES: text is not empty.
Character first_of(std::string_view text) {
    const auto lead = static_cast<std::uint8_t>(text.front());
    const std::size_t bytes = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    const Character invalid{0, 1, false};
    if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || bytes > text.size())
        return invalid;
    char32_t code = bytes == 1 ? lead : lead & (0x7Fu >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<std::uint8_t>(text[i]);
        if ((next & 0xC0) != 0x80) return invalid;
        code = code << 6 | (next & 0x3Fu);
    }
    const bool is_surrogate = code >= 0xD800 && code < 0xE000;
    if (code < kLeast[bytes - 1] || code > 0x10FFFF || is_surrogate) return invalid;
    return {code, bytes, true};
}

// Embeddings, overrides and isolates (Unicode Standard Annex 9, 2).
bool is_direction(char32_t code) {
    return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

// Characters that cannot be shown, or that XML 1.0 (2.2) does not allow.
bool is_unfit(char32_t code) {
    const bool is_control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool is_line_end = code == 0x2028 || code == 0x2029;
    return is_control || is_line_end || code == 0xFFFE || code == 0xFFFF;
}

// Returns whether the character takes no column of its own.
bool is_mark(char32_t code) {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr) return false;
    const locale_t before = uselocale(utf8);
    const int columns = wcwidth(static_cast<wchar_t>(code));
    uselocale(before);
    return columns == 0;
}

}  // namespace

std::string shown_text(std::string_view text) {
    std::string shown;
    int marks = 0;
    for (Character next{}; !text.empty(); text.remove_prefix(next.bytes)) {
        next = first_of(text);
        if (!next.is_valid || is_unfit(next.code)) {
            shown += kReplacement;
            marks = 0;
            continue;
        }
        if (is_direction(next.code)) continue;
        marks = is_mark(next.code) ? marks + 1 : 0;
        if (marks <= kMostMarks) shown += text.substr(0, next.bytes);
    }
    return shown;
}

std::string shown_path(std::string_view path) {
    if (shown_text(path) == path) return std::string(path);
    std::string quoted = "\"";
    for (const char byte : path) {
        const bool is_plain = byte >= ' ' && byte < 0x7F && byte != '"' && byte != '\\';
        quoted +=
            is_plain ? std::string(1, byte) : "\\x" + to_hex(std::string_view(&byte, 1));
    }
    return quoted + '"';
}
