#ifndef KESTAN_TOOLS_JSON_JSON_NODE_H
#define KESTAN_TOOLS_JSON_JSON_NODE_H

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// A mistake in a JSON document: the path to the field, what stands there, what was
// expected.
class JsonMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A value in a JSON document and the path to it, as in "pmts[2].streams[0].pid".
//
// Reads what people write: numbers are decimal or strings such as "0x0100", bytes are
// hexadecimal digits. Whatever is not as asked raises JsonMistake. The document must
// outlive its nodes.
class JsonNode {
public:
    // The document's root.
    explicit JsonNode(const nlohmann::json& root) : value_(&root) {}

    // A mistake unless this is an object with no other fields than these: a misspelt name
    // must not pass for a field that was left out.
    void expect_fields(std::initializer_list<std::string_view> names) const;

    [[nodiscard]] bool has(const char* name) const { return value_->contains(name); }

    // The object's field; a mistake when it is missing.
    [[nodiscard]] JsonNode operator[](const char* name) const;

    // The elements of an array.
    [[nodiscard]] std::vector<JsonNode> elements() const;

    // The elements of an array that may be left out when it has none.
    [[nodiscard]] std::vector<JsonNode> elements_of(const char* name) const;

    [[nodiscard]] std::int32_t number(std::int32_t lowest, std::int32_t highest) const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::string bytes() const;

    // Raises the mistake at this place; `expected` as in "a number from 0 to 7".
    [[noreturn]] void mistake(const std::string& expected) const;

private:
    JsonNode(const nlohmann::json& value, std::string path)
        : value_(&value), path_(std::move(path)) {}

    const nlohmann::json* value_;
    std::string path_;
};

#endif
