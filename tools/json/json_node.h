#ifndef KESTAN_TOOLS_JSON_JSON_NODE_H
#define KESTAN_TOOLS_JSON_JSON_NODE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// A mistake in a JSON document. The message has the path to the field, its value, and
// what was expected.
class JsonMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A value in a JSON document and the path to it, as in "pmts[2].streams[0].pid".
//
// Reads what people write: numbers are decimal or strings such as "0x0100", bytes are
// hexadecimal digits. Each function raises JsonMistake if the value is not what it asks
// for. The document must outlive its nodes.
//
// A doubt is a number that can be read but may be meant otherwise, as "0100".
class JsonNode {
public:
    // Makes the node of the document's root. Its nodes append their doubts to `doubts`,
    // which must outlive them, unless it is null.
    explicit JsonNode(const nlohmann::json& root,
                      std::vector<std::string>* doubts = nullptr)
        : value_(&root), doubts_(doubts) {}

    // Raises a mistake if this is no object or has a field that is not in the list: a
    // misspelt name must not look like a field that was left out.
    void expect_fields(const std::vector<std::string_view>& names) const;

    [[nodiscard]] bool has(const char* name) const { return value_->contains(name); }

    // Returns the object's field. Raises a mistake if it is missing.
    [[nodiscard]] JsonNode operator[](const char* name) const;

    // Returns the elements of an array.
    [[nodiscard]] std::vector<JsonNode> elements() const;

    // Returns the elements of a field that is an array, or no elements if the field is
    // missing.
    [[nodiscard]] std::vector<JsonNode> elements_of(const char* name) const;

    [[nodiscard]] std::int32_t number(std::int32_t lowest, std::int32_t highest) const {
        return static_cast<std::int32_t>(in_range(lowest, highest));
    }

    // Returns the value of an unsigned field with this number of bits, at most 62.
    [[nodiscard]] std::uint64_t unsigned_of(unsigned bits) const {
        return static_cast<std::uint64_t>(in_range(0, (std::int64_t{1} << bits) - 1));
    }

    // Returns the value of an unsigned field with at most 31 bits, in the type that
    // Thrift has for it.
    [[nodiscard]] std::int32_t i32_of(unsigned bits) const {
        return static_cast<std::int32_t>(unsigned_of(bits));
    }

    // Returns the value of a field of 8 bits that has two decimal digits. Doubts whether
    // 88 means "0x88", and a digit above 9.
    [[nodiscard]] std::uint64_t bcd() const;

    [[nodiscard]] bool boolean() const;
    [[nodiscard]] bool is_text() const { return value_->is_string(); }
    [[nodiscard]] std::string text() const;
    [[nodiscard]] std::string bytes() const;

    // Raises a mistake at this node's place. `expected` is a text such as "a number from
    // 0 to 7".
    [[noreturn]] void mistake(const std::string& expected) const;

private:
    void doubt(const std::string& advice) const;

    JsonNode(const nlohmann::json& value, std::string path,
             std::vector<std::string>* doubts)
        : value_(&value), path_(std::move(path)), doubts_(doubts) {}

    [[nodiscard]] std::int64_t in_range(std::int64_t lowest, std::int64_t highest) const;

    const nlohmann::json* value_;
    std::string path_;
    std::vector<std::string>* doubts_;
};

#endif
