#ifndef KESTAN_TOOLS_JSON_JSON_NODE_H
#define KESTAN_TOOLS_JSON_JSON_NODE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// What was found at one place in a JSON document.
struct JsonRemark {
    std::string place;  // path to the value or field, as in "pmts[2].streams[0].pid"
    std::string text;   // the path, what was found, and what was expected
};

// The first remarks on a document, and how many others there are.
struct JsonRemarks {
    static constexpr std::size_t kMost = 20;

    std::vector<JsonRemark> first;
    std::size_t others = 0;

    [[nodiscard]] bool is_empty() const { return first.empty(); }
    [[nodiscard]] bool is_full() const { return first.size() == kMost; }
    void add(JsonRemark remark);
};

// Describes a value in ASCII, short enough for a message.
[[nodiscard]] std::string abridged(const nlohmann::json& value);

// What is found while a document is read.
//
// A doubt is a number that can be read but may be meant otherwise, as "0100".
struct JsonFindings {
    JsonRemarks mistakes;
    JsonRemarks doubts;
};

// A mistake in a JSON document.
struct JsonMistake : std::runtime_error {
    explicit JsonMistake(JsonRemark found)
        : std::runtime_error(found.text), remark(std::move(found)) {}

    JsonRemark remark;
};

// A value in a JSON document and the path to it.
//
// Reads what people write: numbers are decimal or strings such as "0x0100", bytes are
// hexadecimal digits. Each function raises JsonMistake if the value is not what it asks
// for. The document must outlive its nodes.
class JsonNode {
public:
    // Makes the node of the document's root. Its nodes add their doubts, and what keep()
    // keeps, to `findings`, which must outlive them, unless it is null.
    explicit JsonNode(const nlohmann::json& root, JsonFindings* findings = nullptr)
        : value_(&root), findings_(findings) {}

    // Returns this node. All remarks on it and its fields end with "(subject)".
    [[nodiscard]] JsonNode about(std::string subject) const;

    // Calls read(). If that raises a mistake, adds it to the findings, so that the next
    // part of the document can be read. Passes it on if there are no findings.
    template <typename Read>
    void keep(Read read) const {
        try {
            read();
        } catch (const JsonMistake& mistake) {
            if (findings_ == nullptr) throw;
            findings_->mistakes.add(mistake.remark);
        }
    }

    // Returns whether a mistake was kept.
    [[nodiscard]] bool has_mistakes() const {
        return findings_ != nullptr && !findings_->mistakes.is_empty();
    }

    // Raises a mistake if this is no object or has a field that is not in the list: a
    // misspelt name must not look like a field that was left out.
    void expect_fields(const std::vector<std::string>& names) const;

    // Raises a mistake if this is no object, and keeps one for each field that is not in
    // the list.
    void keep_unknown_fields(const std::vector<std::string>& names) const;

    [[nodiscard]] bool has(const std::string& name) const {
        return value_->contains(name);
    }

    // Returns the object's field. Raises a mistake if it is missing.
    [[nodiscard]] JsonNode operator[](const std::string& name) const;

    // Returns the elements of an array.
    [[nodiscard]] std::vector<JsonNode> elements() const;

    // Returns the elements of a field that is an array, or no elements if the field is
    // missing.
    [[nodiscard]] std::vector<JsonNode> elements_of(const char* name) const;

    // Returns the value of a field that is a number, or nullopt if it is missing or
    // anything else.
    [[nodiscard]] std::optional<std::int64_t> number_if_any(const char* name) const;

    [[nodiscard]] std::int32_t number(std::int32_t lowest, std::int32_t highest) const {
        return static_cast<std::int32_t>(in_range(lowest, highest));
    }

    // Returns the value of an unsigned field with this number of bits, at most 62.
    [[nodiscard]] std::uint64_t unsigned_of(unsigned bits) const {
        return static_cast<std::uint64_t>(in_range(0, (std::int64_t{1} << bits) - 1));
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

    // Raises a mistake that says what was found, if that is more than one value.
    [[noreturn]] void mistake(const std::string& found,
                              const std::string& expected) const;

private:
    JsonNode(const nlohmann::json& value, std::string path, const JsonNode& parent)
        : value_(&value),
          path_(std::move(path)),
          subject_(parent.subject_),
          findings_(parent.findings_) {}

    [[nodiscard]] JsonRemark remark(const std::string& text) const;
    [[nodiscard]] std::string path_of(const std::string& field) const;
    [[nodiscard]] std::int64_t in_range(std::int64_t lowest, std::int64_t highest) const;

    // The same, without a doubt.
    [[nodiscard]] std::int64_t any_in_range(std::int64_t lowest,
                                            std::int64_t highest) const;
    void doubt(const std::string& advice) const;

    const nlohmann::json* value_;
    std::string path_;
    std::string subject_;
    JsonFindings* findings_;
};

#endif
