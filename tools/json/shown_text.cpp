#include "tools/json/shown_text.h"

#include <clocale>
#include <cwchar>

#include <boost/locale/utf.hpp>

#include "tools/json/number_text.h"

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr int kMostMarks = 4;

// Embeddings, overrides and isolates (Unicode Standard Annex 9, 2).
bool is_direction(char32_t code) {
    return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

// Returns whether this is no character, or one that cannot be shown, or that XML 1.0
// (2.2) does not allow.
bool is_unfit(char32_t code) {
    const bool is_control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool is_line_end = code == 0x2028 || code == 0x2029;
    return is_control || is_line_end || code == 0xFFFE || code == 0xFFFF ||
           !boost::locale::utf::is_valid_codepoint(code);
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
    for (auto at = text.begin(); at != text.end();) {
        const auto start = at;
        const char32_t code =
            boost::locale::utf::utf_traits<char>::decode(at, text.end());
        if (!boost::locale::utf::is_valid_codepoint(code)) at = start + 1;
        if (is_unfit(code)) {
            shown += kReplacement;
            marks = 0;
            continue;
        }
        if (is_direction(code)) continue;
        marks = is_mark(code) ? marks + 1 : 0;
        if (marks <= kMostMarks) shown.append(start, at);
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
