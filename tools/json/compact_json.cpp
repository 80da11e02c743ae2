#include "tools/json/compact_json.h"

#include <algorithm>

#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/replace.hpp>

using nlohmann::ordered_json;

namespace {

constexpr std::size_t kIndent = 2;

std::string name_in(const ordered_json& owner, const std::string& key) {
    return owner.is_object() ? ordered_json(key).dump() + ": " : "";
}

std::string on_one_line(const ordered_json& value) {
    std::string text = value.dump(0);  // in lines that are not indented
    boost::algorithm::replace_all(text, ",\n", ", ");
    boost::algorithm::erase_all(text, "\n");
    return text;
}

// Returns whether the value has no object or array in it.
bool is_plain(const ordered_json& value) {
    return !value.is_object() &&
           std::none_of(value.begin(), value.end(), [](const ordered_json& element) {
               return element.is_structured();
           });
}

// Returns the value as it stands after `used` columns of a line that begins with `indent`
// blanks. A comma may follow it.
std::string text_of(const ordered_json& value, std::size_t width, std::size_t indent,
                    std::size_t used) {
    std::string line = on_one_line(value);
    if (!value.is_structured() || used + line.size() < width) return line;
    const std::size_t inner = indent + kIndent;
    std::string elements;
    std::size_t column = width;  // of the end of the last line; `width` if it is full
    for (const auto& element : value.items()) {
        const std::string name = name_in(value, element.key());
        const std::size_t size = name.size() + on_one_line(element.value()).size();
        if (is_plain(element.value()) && column + 2 + size < width) {
            elements += ", " + name + on_one_line(element.value());
            column += 2 + size;
            continue;
        }
        elements += (elements.empty() ? "\n" : ",\n") + std::string(inner, ' ');
        elements += name + text_of(element.value(), width, inner, inner + name.size());
        column = is_plain(element.value()) ? inner + size : width;
    }
    elements += '\n' + std::string(indent, ' ');
    return value.is_object() ? '{' + elements + '}' : '[' + elements + ']';
}

}  // namespace

std::string compact_json(const ordered_json& value, std::size_t width) {
    return text_of(value, width, 0, 0);
}
