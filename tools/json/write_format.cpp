// write_format SCHEMA MANUAL: writes the JSON Schema of the file format, and replaces the
// two tables of its manual, from the descriptions of the fields that the reader and the
// writer use too.

#include <iostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tools/json/compact_json.h"
#include "tools/json/descriptor_fields.h"
#include "tools/json/dvb_text.h"
#include "tools/json/multiplex_json.h"
#include "tools/json/number_text.h"
#include "tools/json/text_file.h"

using nlohmann::ordered_json;
using namespace orvel::thrift::dvb_tables;
using namespace std::string_literals;

namespace {

constexpr std::size_t kWidth = 160;  // of the schema's lines
constexpr unsigned kBitsOfHexDigit = 4;

ordered_json reference(const std::string& name) {
    return {{"$ref", "#/$defs/" + name}};
}

ordered_json with_note(const std::string& note, const ordered_json& schema) {
    ordered_json noted = ordered_json::object();
    if (!note.empty()) noted["description"] = note;
    noted.update(schema);
    return noted;
}

ordered_json object_of(const ordered_json& properties, const ordered_json& required) {
    ordered_json schema{{"type", "object"}, {"additionalProperties", false}};
    if (!required.empty()) schema["required"] = required;
    schema["properties"] = properties;
    return schema;
}

std::string times(const std::string& digit, std::size_t least, std::size_t most) {
    if (most == 0) return "";
    if (least == 1 && most == 1) return digit;
    const std::string from = least == most ? "" : std::to_string(least) + ",";
    return digit + '{' + from + std::to_string(most) + '}';
}

std::string digit_up_to(char lowest, char highest) {
    if (lowest == highest) return {lowest};
    return "["s + lowest + '-' + highest + ']';
}

// Returns a pattern of the decimal numbers below `end`, without leading zeros.
std::string decimal_pattern(std::uint64_t end) {
    const std::string digits = std::to_string(end);
    std::string pattern = "0";
    if (digits.size() > 1) pattern += "|[1-9]" + times("[0-9]", 0, digits.size() - 2);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        // As the end up to digit i, which is smaller.
        const char lowest = i == 0 ? '1' : '0';
        if (digits[i] == lowest) continue;
        const std::size_t rest = digits.size() - i - 1;
        pattern += '|' + digits.substr(0, i) +
                   digit_up_to(lowest, static_cast<char>(digits[i] - 1)) +
                   times("[0-9]", rest, rest);
    }
    return pattern;
}

std::string hex_pattern(unsigned bits) {
    const unsigned whole = bits / kBitsOfHexDigit;
    const unsigned rest = bits % kBitsOfHexDigit;
    std::string digits = times("[0-9a-fA-F]", 1, whole);
    if (rest == 0) return digits;
    const std::string first = digit_up_to('0', static_cast<char>('0' + (1U << rest) - 1));
    return first + (whole == 0 ? "" : "?") + digits;
}

ordered_json number_schema(unsigned bits) {
    const std::uint64_t end = std::uint64_t{1} << bits;
    return {{"type", ordered_json::array({"integer", "string"})},
            {"minimum", 0},
            {"maximum", end - 1},
            {"pattern",
             "^(0[xX]0*(" + hex_pattern(bits) + ")|" + decimal_pattern(end) + ")$"}};
}

// Values in descriptors. BCD above 9 is a string: a number may be meant otherwise.
constexpr const char* kDefinitions = R"({
    "bcd": {"anyOf": [{"type": "integer", "minimum": 0, "maximum": 9},
                      {"type": "string", "pattern": "^(0[xX]0*[0-9]{1,2}|[0-9])$"}]},
    "language": {"description": "ISO 639-2 or, of a country, ISO 3166",
                 "type": "string", "pattern": "^[A-Za-z]{3}$"},
    "text": {"type": "string", "pattern": "^[^\\u0000-\\u001F\\u007F-\\u009F]*$"}
})";

ordered_json bytes_schema(std::size_t most) {
    return {{"type", "string"},
            {"pattern", "^( *[0-9a-fA-F]{2}){0," + std::to_string(most) + "} *$"}};
}

// Calls visit(kind, table) with an empty table of each kind that a multiplex has.
template <typename Visit>
void for_each_table_type(Visit visit) {
    for_each_single_table([&](TableKind kind, auto member) {
        visit(kind, (Multiplex().*member).emplace());
    });
    visit(TableKind::kPmt, PMT());
}

// Visits the fields that a structure has in JSON.
template <typename Structure, typename Visitor>
void visit_fields(Visitor& visitor) {
    if constexpr (std::is_same_v<Structure, PMT>)
        visitor.number(&PmtOnPid::pid, kPmtPidField);
    TableFields<Structure>::visit(visitor);
}

// Makes the schema. Its definitions come as they are needed.
class Schema {
public:
    // REQUIRES: `lowest` is 0 or 1.
    ordered_json number(unsigned bits, std::int32_t lowest = 0) {
        const std::string name = bits == kPidBits ? "pid" : "u" + std::to_string(bits);
        definitions_[name] = number_schema(bits);
        if (lowest == 0) return reference(name);
        ordered_json& from_1 = definitions_[name + "_from_1"] = reference(name);
        from_1["minimum"] = 1;
        from_1["not"] = {{"type", "string"}, {"pattern", "^(0[xX])?0+$"}};
        return reference(name + "_from_1");
    }

    template <typename Structure>
    ordered_json structure();

    ordered_json multiplex();

private:
    ordered_json field(const DescriptorForm& form, const DescriptorField& field);
    ordered_json descriptor_named(const DescriptorForm& form);
    ordered_json descriptor();
    void define_descriptors();

    ordered_json definitions_;
};

// A visitor that describes the fields.
struct FieldSchemas {
    Schema& schema;
    ordered_json properties{};
    ordered_json required{};

    template <typename Member>
    void number(Member, const NumberField& field) {
        properties[field.name] =
            with_note(field.note, schema.number(field.bits, field.lowest));
        if (!field.is_optional) required.push_back(field.name);
    }
    template <typename Member>
    void flag(Member, const char* name, bool if_absent) {
        properties[name] = {{"type", "boolean"}, {"default", if_absent}};
    }
    template <typename Structure, typename Element>
    void list(std::vector<Element> Structure::*, const char* name) {
        if constexpr (std::is_same_v<Element, Descriptor>) {
            properties[name] = reference("descriptors");
        } else {
            properties[name] = {{"type", "array"},
                                {"items", schema.structure<Element>()}};
        }
    }
};

template <typename Structure>
ordered_json Schema::structure() {
    FieldSchemas fields{*this};
    visit_fields<Structure>(fields);
    return object_of(fields.properties, fields.required);
}

// Returns the bits that every entry has.
unsigned least_bits(const DescriptorForm& form) {
    unsigned bits = form.extension ? kBitsOfByte : 0;
    for (const DescriptorField& field : form.fields) {
        if (field.need != FieldNeed::kIfPresenceFlag) bits += field.bits;
    }
    return bits;
}

// Returns which fields need which others beside them.
ordered_json needed_fields(const DescriptorForm& form) {
    ordered_json needed = ordered_json::object();
    for (const DescriptorField& field : form.fields) {
        if (*field.with == '\0' || field.kind == FieldKind::kOnes) continue;
        needed[field.name].push_back(field.with);
        if (is_in_json(field)) needed[field.with].push_back(field.name);
    }
    return needed;
}

ordered_json Schema::field(const DescriptorForm& form, const DescriptorField& field) {
    const std::size_t bytes_left = kMaxDescriptorData - least_bits(form) / kBitsOfByte;
    switch (field.kind) {
        case FieldKind::kCharacterCode:
            return {
                {"anyOf",
                 {{{"type", "string"}, {"pattern", "^[ -~]{4}$"}}, number(field.bits)}}};
        case FieldKind::kFlag:
            return {{"type", "boolean"}};
        case FieldKind::kLanguage:
            return reference("language");
        case FieldKind::kBcdNumber:
            return reference("bcd");
        case FieldKind::kCountries:
            return {{"type", "array"},
                    {"maxItems", bytes_left / kLanguageSize},
                    {"items", reference("language")}};
        case FieldKind::kText: {
            ordered_json text = reference("text");
            text["maxLength"] = bytes_left;
            return text;
        }
        case FieldKind::kBytes:
            return bytes_schema(bytes_left);
        case FieldKind::kNumber:
        case FieldKind::kHexNumber:
        case FieldKind::kZeros:
        case FieldKind::kOnes:
        case FieldKind::kPresence:
        case FieldKind::kAbsence:
        case FieldKind::kIfMore:
            break;
    }
    return number(field.bits);
}

ordered_json Schema::descriptor_named(const DescriptorForm& form) {
    ordered_json properties = ordered_json::object();
    ordered_json required = ordered_json::array();
    for (const DescriptorField& part : form.fields) {
        if (!is_in_json(part)) continue;
        properties[part.name] = with_note(part.note, field(form, part));
        if (part.kind == FieldKind::kText)
            properties[coding_field(part.name)] = reference("coding");
        if (part.need == FieldNeed::kRequired) required.push_back(part.name);
    }
    ordered_json entry = object_of(properties, required);
    const ordered_json needed = needed_fields(form);
    if (!needed.empty()) entry["dependentRequired"] = needed;
    if (!form.is_list) return entry;
    return {{"type", "array"},
            {"maxItems", kMaxDescriptorData * kBitsOfByte / least_bits(form)},
            {"items", entry}};
}

ordered_json Schema::descriptor() {
    ordered_json properties{
        {"tag",
         with_note("descriptor_tag of a descriptor without a name here", number(8))},
        {"data",
         with_note("what follows descriptor_length", bytes_schema(kMaxDescriptorData))}};
    for (const DescriptorForm& form : descriptor_forms()) {
        properties[form.name] = descriptor_named(form);
    }
    ordered_json schema = with_note("raw with tag and data, or one name with its fields",
                                    object_of(properties, {}));
    schema["oneOf"] = ordered_json::parse(R"([
        {"required": ["tag", "data"], "maxProperties": 2},
        {"minProperties": 1, "maxProperties": 1, "properties": {"tag": false, "data": false}}
    ])");
    return schema;
}

void Schema::define_descriptors() {
    definitions_.update(ordered_json::parse(kDefinitions));
    ordered_json codings;
    for (const DvbCoding& coding : dvb_codings()) codings.push_back(coding.name);
    definitions_["coding"] = with_note(
        "the default table of ETSI EN 300 468, annex A, if it is left out and "
        "the table has all characters, else UTF-8",
        {{"enum", codings}});
    definitions_["descriptor"] = descriptor();
    definitions_["descriptors"] = {{"type", "array"}, {"items", reference("descriptor")}};
}

ordered_json Schema::multiplex() {
    ordered_json properties{{"$schema", {{"type", "string"}}}};
    ordered_json any_of;
    for_each_table_type([&](TableKind kind, auto table) {
        const std::string key = table_info(kind).key;
        ordered_json required{{"required", ordered_json::array({key})}};
        properties[key] = structure<decltype(table)>();
        if (kind == TableKind::kPmt) {
            properties[key] = {
                {"type", "array"}, {"uniqueItems", true}, {"items", properties[key]}};
            required["properties"][key]["minItems"] = 1;
        }
        any_of.push_back(required);
    });
    ordered_json schema{
        {"$schema", "https://json-schema.org/draft/2020-12/schema"},
        {"title", "Kestan multiplex"},
        {"description",
         "The tables of a DVB multiplex, as kestan-control reads and "
         "writes them. Numbers are decimal or strings such as \"0x0100\"."}};
    schema.update(object_of(properties, {}));
    schema["anyOf"] = any_of;
    define_descriptors();
    schema["$defs"] = definitions_;
    return schema;
}

// A visitor that writes the manual's table of fields: a row for each field, then the rows
// of the structures in its lists.
struct FieldRows {
    std::string place;
    std::string rows{};
    std::string inner_rows{};

    void row(const char* name, const std::string& value) {
        rows += std::exchange(place, "") + '|' + name + '|' + value + '\n';
    }
    template <typename Member>
    void number(Member, const NumberField& field) {
        const std::int32_t highest = field.highest();
        const bool is_hex = field.bits > kBitsOfByte;
        row(field.name, std::to_string(field.lowest) + " to " +
                            (is_hex ? hex_number(highest, 4) : std::to_string(highest)) +
                            (field.is_optional ? ", default 0" : "") +
                            (*field.note == '\0' ? "" : "; "s + field.note));
    }
    template <typename Member>
    void flag(Member, const char* name, bool if_absent) {
        row(name, if_absent ? "default true" : "default false");
    }
    template <typename Structure, typename Element>
    void list(std::vector<Element> Structure::*, const char* name) {
        if constexpr (std::is_same_v<Element, Descriptor>) {
            row(name, "list: see DESCRIPTORS");
        } else {
            row(name, "list");
            FieldRows inner{name + "[]"s};
            visit_fields<Element>(inner);
            inner_rows += inner.rows + inner.inner_rows;
        }
    }
};

std::string manual_fields() {
    std::string text = ".TS\ntab(|);\nl l l.\n\\fBin\\fR|\\fBfield\\fR|\\fBvalue\\fR\n";
    for_each_table_type([&](TableKind kind, auto table) {
        FieldRows rows{table_info(kind).key + (kind == TableKind::kPmt ? "[]"s : "")};
        visit_fields<decltype(table)>(rows);
        text += rows.rows + rows.inner_rows;
    });
    return text + ".TE\n";
}

std::string manual_descriptors() {
    std::string text = ".TS\ntab(|);\nl l lx.\n\\fBtag\\fR|\\fBname\\fR|\\fBfields\\fR\n";
    for (const DescriptorForm& form : descriptor_forms()) {
        std::string fields;
        for (const DescriptorField& field : form.fields) {
            if (!is_in_json(field)) continue;
            fields += (fields.empty() ? "\\%" : ",\n\\%") + std::string(field.name);
            if (field.need != FieldNeed::kRequired) fields += '?';
            if (*field.note != '\0') fields += " ("s + field.note + ')';
        }
        text += hex_number(form.tag, 2) +
                (form.extension ? ' ' + hex_number(*form.extension, 2) : "") + "|\\%" +
                form.name + (form.is_list ? "[]" : "") + "|T{\n" + fields + "\nT}\n";
    }
    return text + ".TE\n";
}

// Replaces the first table at `from` or after. Returns the end of the new one.
std::size_t replace_table(std::string& manual, std::size_t from,
                          const std::string& table) {
    const std::size_t start = manual.find(".TS\n", from);
    const std::size_t end = manual.find(".TE\n", start);
    if (end == std::string::npos)
        throw std::runtime_error("the manual has no such table");
    manual.replace(start, end + 4 - start, table);
    return start + table.size();
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::cerr << "usage: write_format SCHEMA MANUAL\n";
        return 2;
    }
    std::string manual = read_text_file(argv[2], FileKind::kRegular);
    const std::size_t end = replace_table(manual, 0, manual_fields());
    replace_table(manual, end, manual_descriptors());
    const std::string schema = compact_json(Schema().multiplex(), kWidth) + '\n';
    replace_text_file(argv[1], schema, FileUse::kReport);
    replace_text_file(argv[2], manual, FileUse::kReport);
}
