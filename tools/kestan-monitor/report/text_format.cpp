#include "tools/kestan-monitor/report/text_format.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <ctime>
#include <cwchar>

namespace {

std::tm local_time(std::int64_t civil) {
    return fmt::localtime(civil / kNsPerSecond);
}

std::int64_t milliseconds(std::int64_t civil) {
    return civil % kNsPerSecond / kNsPerMs;
}

struct Extent {
    std::size_t bytes = 0;
    std::size_t columns = 0;
};

Extent first_character(const std::string& text, std::size_t at) {
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

// Returns how much of `text` fits in `columns`.
Extent fitting(const std::string& text, std::size_t columns) {
    Extent fits;
    while (fits.bytes < text.size()) {
        const Extent next = first_character(text, fits.bytes);
        if (next.columns > columns - fits.columns) break;
        fits.bytes += next.bytes;
        fits.columns += next.columns;
    }
    return fits;
}

}  // namespace

std::string time_of_day(std::int64_t civil) {
    return fmt::format("{:%T}.{:03}", local_time(civil), milliseconds(civil));
}

std::string date_and_time(std::int64_t civil) {
    const std::tm local = local_time(civil);
    std::string zone = fmt::format("{:%z}", local);  // "+0200"
    zone.insert(3, ":");
    return fmt::format("{:%FT%T}.{:03}{}", local, milliseconds(civil), zone);
}

std::int64_t utc_offset(std::int64_t civil) {
    return local_time(civil).tm_gmtoff * kNsPerSecond;
}

std::string utc_date_and_time(std::int64_t seconds) {
    return fmt::format("{:%F %T}", fmt::gmtime(seconds));
}

std::size_t text_width(const std::string& text) {
    return fitting(text, SIZE_MAX).columns;
}

std::string cut(const std::string& text, std::size_t columns) {
    if (columns == 0) return "";
    if (fitting(text, columns).bytes == text.size()) return text;
    return text.substr(0, fitting(text, columns - 1).bytes) + "…";
}

std::string padded(const std::string& text, std::size_t columns) {
    std::string filled = cut(text, columns);
    const std::size_t width = text_width(filled);
    return filled.append(columns - std::min(width, columns), ' ');
}
