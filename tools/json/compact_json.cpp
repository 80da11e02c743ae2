#include "tools/json/compact_json.h"

using nlohmann::ordered_json;

namespace {

constexpr std::size_t kIndent = 2;

std::string scalar(const ordered_json& value) {
    return value.dump();
}

std::string name_in(const ordered_json& owner, const std::string& key) {
    return owner.is_object() ? scalar(key) + ": " : "";
}

std::string on_one_line(const ordered_json& value) {
    if (!value.is_structured()) return scalar(value);
    std::string elements;
    for (const auto& element : value.items()) {
        if (!elements.empty()) elements += ", ";
        elements += name_in(value, element.key()) + on_one_line(element.value());
    }
    return value.is_object() ? '{' + elements + '}' : '[' + elements + ']';
}

// Returns the value as it stands after `used` columns of a line that begins with `indent`
// blanks. A comma may follow it.
std::string text_of(const ordered_json& value, std::size_t width, std::size_t indent,
                    std::size_t used) {
    std::string line = on_one_line(value);
    if (!value.is_structured() || used + line.size() < width) return line;
    const std::size_t inner = indent + kIndent;
    std::string elements;
    for (const auto& element : value.items()) {
        elements += (elements.empty() ? "\n" : ",\n") + std::string(inner, ' ');
        const std::string name = name_in(value, element.key());
        elements += name + text_of(element.value(), width, inner, inner + name.size());
    }
    elements += '\n' + std::string(indent, ' ');
    return value.is_object() ? '{' + elements + '}' : '[' + elements + ']';
}

}  // namespace

std::string compact_json(const ordered_json& value, std::size_t width) {
    return text_of(value, width, 0, 0);
}
