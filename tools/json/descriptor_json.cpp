#include "tools/json/descriptor_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <locale>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/algorithm/hex.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/predicate.hpp>

#include "dvb/section_limits.h"
#include "tools/json/descriptor_fields.h"
#include "tools/json/dvb_text.h"
#include "tools/json/number_text.h"

using nlohmann::ordered_json;
using orvel::thrift::dvb_tables::Descriptor;
using namespace std::string_literals;

namespace {

constexpr std::size_t kCharacterCodeSize = 4;
constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};

// The classic locale knows the characters of ASCII alone.
bool is_language(std::string_view code) {
    const auto is_letter = boost::algorithm::is_alpha(std::locale::classic());
    return code.size() == kLanguageSize && boost::algorithm::all(code, is_letter);
}

bool is_character_code(std::string_view text) {
    const auto is_printable = boost::algorithm::is_print(std::locale::classic());
    return text.size() == kCharacterCodeSize && boost::algorithm::all(text, is_printable);
}

// Writes the data of a descriptor, the most significant bit first.
class DescriptorWriter {
public:
    void put(std::uint64_t value, unsigned bits) {
        for (; bits != 0; --bits) {
            pending_ = pending_ << 1 | (value >> (bits - 1) & 1U);
            ++pending_bits_;
            if (pending_bits_ % 8 == 0) data_ += static_cast<char>(pending_);
        }
    }

    // REQUIRES: the fields so far are whole bytes.
    void put_bytes(std::string_view bytes) { data_ += bytes; }

    // Puts a text as it is coded. `node` is where it stands. REQUIRES: as put_bytes().
    void put_text(const JsonNode& node, const std::string& coded) {
        put_bytes(coded);
        if (longest_text_ && coded.size() <= longest_size_) return;
        longest_text_.emplace(node);
        longest_size_ = coded.size();
    }

    // Returns the data of the descriptor `node`. Raises a mistake if they are too long:
    // at the longest text if that one alone can be made short enough.
    [[nodiscard]] std::string data(const JsonNode& node) && {
        if (data_.size() <= kMaxDescriptorData) return std::move(data_);
        const std::size_t surplus = data_.size() - kMaxDescriptorData;
        if (surplus > longest_size_)
            node.mistake(fmt::format("at most {} bytes of data, these are {}",
                                     kMaxDescriptorData, data_.size()));
        longest_text_->mistake(
            fmt::format("at most {} bytes as it is coded, these are {}",
                        longest_size_ - surplus, longest_size_));
    }

private:
    std::string data_;
    std::uint64_t pending_ = 0;  // the last bits, of which the last byte may be partial
    unsigned pending_bits_ = 0;
    std::optional<JsonNode> longest_text_;
    std::size_t longest_size_ = 0;  // of that text, as it is coded
};

std::string language_from_json(const JsonNode& node) {
    if (!is_language(node.text())) node.mistake("a code of three letters, as in \"eng\"");
    return node.text();
}

const DvbCoding& coding_from_json(const JsonNode& node) {
    std::string names;
    for (const DvbCoding& coding : dvb_codings()) {
        if (coding.name == node.text()) return coding;
        names += (names.empty() ? "" : ", ") + coding.name;
    }
    node.mistake("one of " + names);
}

[[noreturn]] void refuse_coding(const JsonNode& node, const DvbCoding& coding) {
    const std::string text = node.text();
    const std::string lacking(first_lacking(text, coding));
    const std::string what =
        lacking.empty() ? "" : ": " + coding.name + " lacks " + abridged(lacking);
    node.mistake(
        fmt::format("a text whose characters all are in its coding{}, {} has all", what,
                    coding_for(text).name));
}

std::string text_from_json(const JsonNode& entry, const char* name) {
    const JsonNode node = entry[name];
    if (!is_dvb_text(node.text())) {
        node.mistake(
            "a text without control characters: \"\\ue08a\" is a line break, "
            "\"\\ue086\" and \"\\ue087\" switch emphasis on and off");
    }
    const std::string coding_name = coding_field(name);
    const DvbCoding* const coding =
        entry.has(coding_name) ? &coding_from_json(entry[coding_name]) : nullptr;
    const std::optional<std::string> encoded = encode_dvb_text(node.text(), coding);
    if (!encoded)
        refuse_coding(node, coding == nullptr ? coding_for(node.text()) : *coding);
    return *encoded;
}

// Writes one field from the entry `node`.
// REQUIRES: the entry has the field, unless other fields say its value.
void write_field(const DescriptorField& field, const JsonNode& node,
                 DescriptorWriter& to) {
    switch (field.kind) {
        case FieldKind::kNumber:
        case FieldKind::kHexNumber:
            return to.put(node[field.name].unsigned_of(field.bits), field.bits);
        case FieldKind::kBcdNumber:
            return to.put(node[field.name].bcd(), field.bits);
        case FieldKind::kCharacterCode: {
            const JsonNode code = node[field.name];
            if (code.is_text() && is_character_code(code.text()))
                return to.put_bytes(code.text());
            return to.put(code.unsigned_of(field.bits), field.bits);
        }
        case FieldKind::kFlag:
            return to.put(node[field.name].boolean() ? 1 : 0, field.bits);
        case FieldKind::kLanguage:
            return to.put_bytes(language_from_json(node[field.name]));
        case FieldKind::kCountries:
            for (const JsonNode& country : node[field.name].elements()) {
                country.keep([&] { to.put_bytes(language_from_json(country)); });
            }
            return;
        case FieldKind::kText: {
            const std::string text = text_from_json(node, field.name);
            to.put(text.size(), field.bits);
            return to.put_text(node[field.name], text);
        }
        case FieldKind::kBytes: {
            const std::string bytes = node[field.name].bytes();
            to.put(bytes.size(), field.bits);
            return to.put_bytes(bytes);
        }
        case FieldKind::kZeros:
            return to.put(0, field.bits);
        case FieldKind::kOnes:
            return to.put(kAllOnes, field.bits);
        case FieldKind::kPresence:
            return to.put(node.has(field.name) ? 1 : 0, field.bits);
        case FieldKind::kAbsence:
            return to.put(node.has(field.name) ? 0 : 1, field.bits);
        case FieldKind::kIfMore:
            return;
    }
}

// Writes one field from the entry `node`, or nothing if it is not there.
void write_if_there(const DescriptorField& field, const JsonNode& node,
                    DescriptorWriter& to) {
    const bool is_announced = field.need == FieldNeed::kIfPresenceFlag;
    if (is_announced && !node.has(field.announced_as())) {
        if (!node.has(field.name)) return;
        node[field.name].mistake("the field "s + field.announced_as() + " beside it");
    }
    if (is_announced || field.need == FieldNeed::kRequired || node.has(field.name)) {
        return write_field(field, node, to);
    }
    to.put(field.need == FieldNeed::kAbsentIfOnes ? kAllOnes : 0, field.bits);
}

void entry_from_json(const DescriptorForm& form, const JsonNode& node,
                     DescriptorWriter& to) {
    std::vector<std::string> names;
    for (const DescriptorField& field : form.fields) {
        if (is_in_json(field)) names.emplace_back(field.name);
        if (field.kind == FieldKind::kText) names.push_back(coding_field(field.name));
    }
    node.keep_unknown_fields(names);
    for (auto field = form.fields.begin(); field != form.fields.end(); ++field) {
        const auto is_there = [&](const auto& later) { return node.has(later.name); };
        if (field->kind == FieldKind::kIfMore &&
            std::none_of(field, form.fields.end(), is_there))
            return;
        node.keep([&] { write_if_there(*field, node, to); });
    }
}

Descriptor named_from_json(const DescriptorForm& form, const JsonNode& node) {
    DescriptorWriter writer;
    if (form.extension) writer.put(*form.extension, 8);
    for (const JsonNode& entry : form.is_list ? node.elements() : std::vector{node})
        entry.keep([&] { entry_from_json(form, entry, writer); });
    Descriptor descriptor;
    descriptor.tag = form.tag;
    descriptor.data = std::move(writer).data(node);
    return descriptor;
}

// Writes the field's value to an entry. Where JSON has no way to say it, the reader
// refuses what is written.
void add_field(const FieldValue& value, ordered_json& entry) {
    ordered_json& to = entry[value.field->name];
    switch (value.field->kind) {
        case FieldKind::kHexNumber:
        case FieldKind::kBcdNumber:
            to = hex_number(static_cast<std::int64_t>(value.number),
                            static_cast<int>(value.field->bits + 3) / 4);
            return;
        case FieldKind::kCharacterCode:
            to = value.bytes;
            if (!is_character_code(value.bytes))
                to = "0x" + boost::algorithm::hex(std::string(value.bytes));
            return;
        case FieldKind::kFlag:
            to = value.number != 0;
            return;
        case FieldKind::kLanguage:
            to = value.bytes;
            return;
        case FieldKind::kCountries:
            to = ordered_json::array();
            for (std::size_t i = 0; i < value.bytes.size(); i += kLanguageSize)
                to.push_back(value.bytes.substr(i, kLanguageSize));
            return;
        case FieldKind::kText: {
            const auto decoded = decode_dvb_text(value.bytes);
            if (!decoded) return;  // leaves null
            to = decoded->text;
            if (decoded->coding != nullptr)
                entry[coding_field(value.field->name)] = decoded->coding->name;
            return;
        }
        case FieldKind::kBytes:
            to = to_hex(value.bytes);
            return;
        case FieldKind::kNumber:
        case FieldKind::kZeros:
        case FieldKind::kOnes:
        case FieldKind::kPresence:
        case FieldKind::kAbsence:
        case FieldKind::kIfMore:
            to = value.number;
    }
}

// Returns whether the field has the value that leaving it out means, and JSON has it
// without the field.
bool is_left_out(const FieldValue& value) {
    if (value.field->need == FieldNeed::kAbsentIfOnes) {
        return value.number == (std::uint64_t{1} << value.field->bits) - 1;
    }
    return value.field->need == FieldNeed::kAbsentIfZero && value.number == 0 &&
           value.bytes.empty();
}

ordered_json entry_to_json(const std::vector<FieldValue>& entry) {
    ordered_json to = ordered_json::object();
    for (const FieldValue& value : entry) {
        if (is_in_json(*value.field) && !is_left_out(value)) add_field(value, to);
    }
    return to;
}

ordered_json entries_to_json(const DescriptorForm& form,
                             const std::vector<std::vector<FieldValue>>& entries) {
    if (!form.is_list) return entry_to_json(entries.front());
    ordered_json list = ordered_json::array();
    for (const auto& entry : entries) list.push_back(entry_to_json(entry));
    return list;
}

// Returns nullopt if the form has no JSON that gives the same bytes again.
// REQUIRES: no field overruns the descriptor.
std::optional<ordered_json> named_to_json(const DescriptorForm& form,
                                          const Descriptor& descriptor) {
    const ordered_json fields =
        entries_to_json(form, split_descriptor(form, descriptor).entries);
    const nlohmann::json document = fields;
    JsonFindings findings;
    const JsonNode node(document, &findings);
    Descriptor again;
    node.keep([&] { again = named_from_json(form, node); });
    const bool is_valid = findings.mistakes.is_empty() && findings.doubts.is_empty();
    if (!is_valid || again != descriptor) return std::nullopt;
    return ordered_json{{form.name, fields}};
}

// Returns the names of the fields that a descriptor may have.
std::vector<std::string> names_of_fields() {
    std::vector<std::string> names{"tag", "data"};
    for (const DescriptorForm& form : descriptor_forms()) names.emplace_back(form.name);
    return names;
}

}  // namespace

Descriptor descriptor_from_json(const JsonNode& node) {
    static const std::vector<std::string> names = names_of_fields();
    node.expect_fields(names);
    const DescriptorForm* named = nullptr;
    for (const DescriptorForm& form : descriptor_forms()) {
        if (!node.has(form.name)) continue;
        if (named != nullptr) {
            node.mistake(named->name + " and "s + form.name + " in one descriptor",
                         "one name: write a descriptor for each");
        }
        named = &form;
    }
    if (named != nullptr) {
        node.keep_unknown_fields({named->name});
        return named_from_json(*named, node[named->name]);
    }
    Descriptor descriptor;
    node.keep([&] { descriptor.tag = node["tag"].number(0, UINT8_MAX); });
    const JsonNode data = node["data"];
    descriptor.data = data.bytes();
    if (descriptor.data.size() > kMaxDescriptorData) data.mistake("at most 255 bytes");
    return descriptor;
}

ordered_json descriptor_to_json(const Descriptor& descriptor) {
    const bool has_overrun = !inner_overrun(descriptor).empty();
    for (const DescriptorForm& form : descriptor_forms()) {
        if (!form.is_of(descriptor) || has_overrun) continue;
        if (const auto named = named_to_json(form, descriptor)) return *named;
    }
    return {{"tag", hex_number(descriptor.tag, 2)}, {"data", to_hex(descriptor.data)}};
}
