#include "tools/json/json_node.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include <boost/algorithm/string/join.hpp>

#include "tools/json/number_text.h"

using nlohmann::json;

namespace {

constexpr std::size_t kLongestQuote = 40;
constexpr std::size_t kMostNames = 20;  // in a message

// Returns the value of a JSON number or of a string such as "0x0100".
std::optional<std::int64_t> integer(const json& value) {
    if (value.is_string()) return parse_number(value.get_ref<const std::string&>());
    if (value.is_number_unsigned()) {
        // The conversion of a number above INT64_MAX would give a negative one.
        return static_cast<std::int64_t>(
            std::min<std::uint64_t>(value.get<std::uint64_t>(), INT64_MAX));
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    return std::nullopt;
}

bool is_hex(const json& value) {
    const auto* const text = value.get_ptr<const std::string*>();
    return text != nullptr && text->find_first_of("xX") == 1;
}

// Returns whether a decimal number begins with a zero that is not all of it.
bool has_leading_zero(const json& value) {
    const auto* const text = value.get_ptr<const std::string*>();
    return text != nullptr && text->size() > 1 && text->front() == '0' && !is_hex(value);
}

std::string list(const std::vector<std::string>& names) {
    if (names.size() > kMostNames)
        return fmt::format("one of the {} names in kestan-multiplex(5)", names.size());
    return boost::algorithm::join(names, ", ");
}

}  // namespace

std::string abridged(const json& value) {
    if (value.is_object()) return "an object";
    if (value.is_array()) return "an array";
    std::string text =
        value.dump(-1, ' ', /*ensure_ascii=*/true, json::error_handler_t::replace);
    if (text.size() <= kLongestQuote) return text;
    text.resize(kLongestQuote);
    return text + "...";
}

void JsonRemarks::add(JsonRemark remark) {
    if (is_full()) {
        ++others;
    } else {
        first.push_back(std::move(remark));
    }
}

JsonNode JsonNode::about(std::string subject) const {
    JsonNode node = *this;
    node.subject_ = std::move(subject);
    return node;
}

JsonRemark JsonNode::remark(const std::string& text) const {
    return {path_, (path_.empty() ? "" : path_ + ": ") + text +
                       (subject_.empty() ? "" : " (" + subject_ + ')')};
}

std::string JsonNode::path_of(const std::string& field) const {
    return path_.empty() ? field : path_ + '.' + field;
}

void JsonNode::mistake(const std::string& expected) const {
    mistake(abridged(*value_), expected);
}

void JsonNode::mistake(const std::string& found, const std::string& expected) const {
    throw JsonMistake(remark("found " + found + ", expected " + expected));
}

void JsonNode::doubt(const std::string& advice) const {
    if (findings_ == nullptr) return;
    findings_->doubts.add(remark("found " + abridged(*value_) + ", " + advice));
}

void JsonNode::expect_fields(const std::vector<std::string>& names) const {
    JsonNode strict = *this;
    strict.findings_ = nullptr;
    strict.keep_unknown_fields(names);
}

void JsonNode::keep_unknown_fields(const std::vector<std::string>& names) const {
    if (!value_->is_object()) mistake("an object with the fields " + list(names));
    for (const auto& field : value_->items()) {
        if (std::find(names.begin(), names.end(), field.key()) != names.end()) continue;
        JsonRemark unknown = remark("found the field " + abridged(field.key()) +
                                    ", expected only " + list(names));
        unknown.place = path_of(field.key());
        keep([&] { throw JsonMistake(unknown); });
    }
}

JsonNode JsonNode::operator[](const std::string& name) const {
    const auto field = value_->find(name);
    if (field != value_->end()) return {*field, path_of(name), *this};
    const JsonNode missing(*value_, path_of(name), *this);
    throw JsonMistake(missing.remark("missing, expected this field"));
}

std::vector<JsonNode> JsonNode::elements() const {
    if (!value_->is_array()) mistake("an array");
    std::vector<JsonNode> nodes;
    nodes.reserve(value_->size());
    for (const json& element : *value_)
        nodes.push_back({element, fmt::format("{}[{}]", path_, nodes.size()), *this});
    return nodes;
}

std::vector<JsonNode> JsonNode::elements_of(const char* name) const {
    if (!has(name)) return {};
    return (*this)[name].elements();
}

std::optional<std::int64_t> JsonNode::number_if_any(const char* name) const {
    return has(name) ? integer(value_->at(name)) : std::nullopt;
}

std::int64_t JsonNode::in_range(std::int64_t lowest, std::int64_t highest) const {
    const std::int64_t value = any_in_range(lowest, highest);
    if (has_leading_zero(*value_)) doubt(fmt::format("write {0} or \"0x{0:04}\"", value));
    return value;
}

std::int64_t JsonNode::any_in_range(std::int64_t lowest, std::int64_t highest) const {
    const std::optional<std::int64_t> value = integer(*value_);
    if (!value || *value < lowest || *value > highest) {
        mistake(fmt::format("a number from {} to {}, decimal or as in \"0x1F\"", lowest,
                            highest));
    }
    return *value;
}

std::uint64_t JsonNode::bcd() const {
    constexpr std::int64_t base = 10;
    const std::int64_t value = any_in_range(0, 0xFF);
    if (value / 16 >= base || value % 16 >= base) {
        doubt("write two decimal digits, as in \"0x88\"");
    } else if (value >= base && !is_hex(*value_)) {
        doubt(fmt::format("write \"{}\" or, for {}, \"0x{}\"", hex_number(value, 2),
                          value, value));
    }
    return static_cast<std::uint64_t>(value);
}

bool JsonNode::boolean() const {
    if (!value_->is_boolean()) mistake("true or false");
    return value_->get<bool>();
}

std::string JsonNode::text() const {
    if (!value_->is_string()) mistake("a text in quotes");
    return value_->get<std::string>();
}

std::string JsonNode::bytes() const {
    std::optional<std::string> bytes;
    if (value_->is_string()) bytes = from_hex(value_->get_ref<const std::string&>());
    if (!bytes) mistake("bytes as pairs of hexadecimal digits, as in \"01a0ff\"");
    return *bytes;
}
