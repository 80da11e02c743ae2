#include "tools/kestan-monitor/report/text_width.h"

#include <algorithm>
#include <clocale>
#include <cwchar>

namespace {

struct Character {
    std::size_t bytes;
    std::size_t columns;
};

Character first_of(const std::string& text, std::size_t at) {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr) return {1, 1};
    const locale_t before = uselocale(utf8);
    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t bytes =
        std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
    const bool is_valid = bytes > 0 && bytes <= text.size() - at;
    const int columns = is_valid ? wcwidth(character) : 1;
    uselocale(before);
    return {is_valid ? bytes : 1, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

// Returns how many bytes of `text` fit in `columns`.
std::size_t fitting(const std::string& text, std::size_t columns) {
    std::size_t at = 0;
    while (at < text.size()) {
        const Character next = first_of(text, at);
        if (next.columns > columns) break;
        columns -= next.columns;
        at += next.bytes;
    }
    return at;
}

}  // namespace

std::size_t text_width(const std::string& text) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Character next = first_of(text, at);
        width += next.columns;
        at += next.bytes;
    }
    return width;
}

std::string cut(const std::string& text, std::size_t columns) {
    if (columns == 0) return "";
    if (fitting(text, columns) == text.size()) return text;
    return text.substr(0, fitting(text, columns - 1)) + "…";
}

std::string padded(const std::string& text, std::size_t columns) {
    std::string filled = cut(text, columns);
    const std::size_t width = text_width(filled);
    return filled.append(columns - std::min(width, columns), ' ');
}
