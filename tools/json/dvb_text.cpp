#include "tools/json/dvb_text.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace {

constexpr char kUtf8Selector = 0x15;  // ETSI EN 300 468, table A.3

bool is_ascii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

bool is_control(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
}

bool is_utf8(const std::string& text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

}  // namespace

std::optional<std::string> encode_dvb_text(const std::string& text) {
    if (std::any_of(text.begin(), text.end(), is_control)) return std::nullopt;
    if (std::all_of(text.begin(), text.end(), is_ascii)) return text;
    if (!is_utf8(text)) return std::nullopt;
    return kUtf8Selector + text;
}

std::optional<std::string> decode_dvb_text(const std::string& field) {
    const bool selected = !field.empty() && field.front() == kUtf8Selector;
    std::string text = selected ? field.substr(1) : field;
    if (encode_dvb_text(text) != field) return std::nullopt;
    return text;
}
