#include "tools/json/dvb_text.h"

#include <iconv.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/locale/utf.hpp>

namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

constexpr const char* kUtf8 = "UTF-8";
constexpr const char* kIso6937 = "ISO_6937";

// ETSI EN 300 468, tables A.3 and A.4.
std::vector<DvbCoding> all_codings() {
    std::vector<DvbCoding> codings{
        {"default", "", kIso6937, true},      {"UTF-8", "\x15", kUtf8, false},
        {"UCS-2", "\x11", "UCS-2BE", false},  {"KS-X-1001", "\x12", "EUC-KR", false},
        {"GB-2312", "\x13", "GB2312", false}, {"UCS-2/0x14", "\x14", "UCS-2BE", false},
    };
    for (char part = 1; part <= 15; ++part) {
        if (part == 12) continue;  // withdrawn
        const std::string name = "ISO-8859-" + std::to_string(part);
        const bool has_short_selector = part >= 5;
        if (has_short_selector) {
            codings.push_back({name, {static_cast<char>(part - 4)}, name, true});
        }
        codings.push_back({has_short_selector ? name + "/0x10" : name,
                           {'\x10', '\0', part},
                           name,
                           true});
    }
    return codings;
}

struct IconvDeleter {
    void operator()(iconv_t conversion) const noexcept { iconv_close(conversion); }
};

// Returns null if the library lacks one of the two. Conversions stay open: the library
// loads a converter again after its last user has closed it, which takes most of a
// millisecond.
iconv_t conversion_between(const std::string& from, const std::string& to) {
    using Conversion = std::unique_ptr<void, IconvDeleter>;
    thread_local std::map<std::pair<std::string, std::string>, Conversion> opened;
    Conversion& conversion = opened[{from, to}];
    if (!conversion) {
        void* const made = iconv_open(to.c_str(), from.c_str());
        if (reinterpret_cast<std::intptr_t>(made) != -1) conversion.reset(made);
    }
    return conversion.get();
}

// Converts what the library knows of the two.
std::optional<std::string> convert_known(const std::string& from, const std::string& to,
                                         std::string_view text) {
    void* const conversion = conversion_between(from, to);
    if (conversion == nullptr) return std::nullopt;
    iconv(conversion, nullptr, nullptr, nullptr, nullptr);  // forgets an earlier failure
    // No coding takes more than four bytes for one of another.
    std::string converted(text.size() * 4, '\0');
    char* in = const_cast<char*>(text.data());  // iconv does not write to it
    std::size_t in_left = text.size();
    char* out = converted.data();
    std::size_t out_left = converted.size();
    // The second call writes a character that could still get an accent.
    if (iconv(conversion, &in, &in_left, &out, &out_left) != 0) return std::nullopt;
    if (iconv(conversion, nullptr, nullptr, &out, &out_left) != 0) return std::nullopt;
    converted.resize(converted.size() - out_left);
    return converted;
}

std::string_view euro_in(const std::string& charset) {
    return charset == kUtf8 ? "\xE2\x82\xAC" : "\xA4";
}

// Converts between UTF-8 and another charset. ISO 6937 is the default table here, which
// has a euro sign.
std::optional<std::string> convert(const std::string& from, const std::string& to,
                                   std::string_view text) {
    if (from != kIso6937 && to != kIso6937) return convert_known(from, to, text);
    std::string converted;
    for (;;) {
        const std::size_t end = text.find(euro_in(from));
        const auto piece = convert_known(from, to, text.substr(0, end));
        if (!piece) return std::nullopt;
        converted += *piece;
        if (end == std::string_view::npos) return converted;
        converted += euro_in(to);
        text.remove_prefix(end + euro_in(from).size());
    }
}

constexpr char32_t kControls = 0x80;
constexpr char32_t kPrivateControls = 0xE080;

// Replaces the 32 control characters from `from` on by those from `to` on.
std::string with_controls(char32_t from, char32_t to, std::string_view text) {
    std::string replaced;
    for (auto at = text.begin(); at != text.end();) {
        const char32_t code = Utf8::decode(at, text.end());
        const bool is_control = code >= from && code < from + 32;
        Utf8::encode(is_control ? code - from + to : code, std::back_inserter(replaced));
    }
    return replaced;
}

const DvbCoding& default_table() {
    return dvb_codings()[0];
}

const DvbCoding& utf_8() {
    return dvb_codings()[1];
}

std::optional<std::string> encode(std::string_view text, const DvbCoding& coding) {
    const std::string controls = coding.has_one_byte_controls
                                     ? with_controls(kPrivateControls, kControls, text)
                                     : std::string(text);
    const auto encoded = convert(kUtf8, coding.charset, controls);
    if (!encoded) return std::nullopt;
    // Some converters write a character that only looks alike.
    if (convert(coding.charset, kUtf8, *encoded) != controls) return std::nullopt;
    return coding.selector + *encoded;
}

// Returns null if the field begins with an unknown selector.
const DvbCoding* coding_of(std::string_view field) {
    if (static_cast<std::uint8_t>(field.front()) >= ' ') return &default_table();
    for (const DvbCoding& coding : dvb_codings()) {
        if (&coding == &default_table()) continue;
        if (boost::algorithm::starts_with(field, coding.selector)) return &coding;
    }
    return nullptr;
}

}  // namespace

const std::vector<DvbCoding>& dvb_codings() {
    static const std::vector<DvbCoding> codings = all_codings();
    return codings;
}

bool is_dvb_text(std::string_view text) {
    for (auto at = text.begin(); at != text.end();) {
        const char32_t code = Utf8::decode(at, text.end());
        const bool is_control = code < ' ' || (code >= 0x7F && code < 0xA0);
        if (is_control || !boost::locale::utf::is_valid_codepoint(code)) return false;
    }
    return true;
}

std::optional<std::string> encode_dvb_text(std::string_view text,
                                           const DvbCoding* coding) {
    if (coding != nullptr) return encode(text, *coding);
    if (text.empty()) return "";
    auto encoded = encode(text, default_table());
    return encoded ? encoded : encode(text, utf_8());
}

std::string_view first_lacking(std::string_view text, const DvbCoding& coding) {
    while (!text.empty()) {
        const int trail = Utf8::trail_length(text.front());
        const std::string_view character =
            text.substr(0, 1 + static_cast<std::size_t>(trail));
        if (!encode(character, coding)) return character;
        text.remove_prefix(character.size());
    }
    return {};
}

const DvbCoding& coding_for(std::string_view text) {
    for (const DvbCoding& coding : dvb_codings()) {
        if (coding.has_one_byte_controls && encode(text, coding)) return coding;
    }
    return utf_8();
}

std::optional<DvbText> decode_dvb_text(std::string_view field) {
    if (field.empty()) return DvbText{"", nullptr};
    const DvbCoding* const coding = coding_of(field);
    if (coding == nullptr) return std::nullopt;
    const auto converted =
        convert(coding->charset, kUtf8, field.substr(coding->selector.size()));
    if (!converted) return std::nullopt;
    std::string text = with_controls(kControls, kPrivateControls, *converted);
    if (!is_dvb_text(text)) return std::nullopt;
    const bool is_chosen = encode_dvb_text(text, nullptr) == field;
    return DvbText{std::move(text), is_chosen ? nullptr : coding};
}
