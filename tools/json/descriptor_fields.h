#ifndef KESTAN_TOOLS_JSON_DESCRIPTOR_FIELDS_H
#define KESTAN_TOOLS_JSON_DESCRIPTOR_FIELDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "thrift/dvb_tables_types.h"

// The layout of the descriptors that have a name: one table for reading, writing and
// checking them.
//
// A descriptor's data is a sequence of fields, most significant bit first, or a list of
// entries that have these fields each. Field names are the standards' in lower case.

constexpr unsigned kBitsOfByte = 8;
constexpr unsigned kLanguageSize = 3;  // bytes of a code of a language or a country

enum class FieldKind : std::uint8_t {
    kNumber,         // unsigned
    kHexNumber,      // unsigned, written in hexadecimal
    kBcdNumber,      // two decimal digits in 8 bits, written in hexadecimal
    kCharacterCode,  // 32 bits: four characters where all are printable ASCII
    kFlag,           // one bit
    kLanguage,       // three ASCII letters (ISO 639-2)
    kCountries,      // all bytes that are left: codes of three ASCII letters (ISO 3166)
    kText,           // a length and a text (ETSI EN 300 468, annex A)
    kBytes,          // a length and bytes
    kZeros,          // reserved bits, all 0
    kOnes,           // reserved bits, all 1
    kPresence,       // one bit: whether the later field of the same name is there
    kAbsence,        // one bit: whether it is not there
    kIfMore,         // no bits: the fields that follow are there if bytes are left
};

enum class FieldNeed : std::uint8_t {
    kRequired,
    kZeroIfAbsent,    // may be left out of the JSON, which then means 0
    kAbsentIfZero,    // may be left out, which means 0; never written when it is 0
    kAbsentIfOnes,    // may be left out: all bits are 1; never written when they are
    kIfPresenceFlag,  // there if its kPresence or kAbsence bit says so
};

struct DescriptorField {
    FieldKind kind;
    unsigned bits;  // at most 62; of a text or bytes: their length's, or 0 if they have
                    // none and take all bytes that are left
    const char* name;
    FieldNeed need = FieldNeed::kRequired;
    const char* note = "";  // what a value means, for people
    const char* with = "";  // whose bit is meant by kIfPresenceFlag, if not its own

    // Returns the field whose bit says whether this one is there.
    [[nodiscard]] const char* announced_as() const { return *with == '\0' ? name : with; }
};

// Returns the name of the JSON field that says a text's coding.
[[nodiscard]] std::string coding_field(const char* text_field);

// Returns whether the field has a value in JSON. Reserved bits, kPresence, kAbsence and
// kIfMore have none: they follow from other fields.
[[nodiscard]] bool is_in_json(const DescriptorField& field);

struct DescriptorForm {
    const char* name;
    std::uint8_t tag;
    bool is_list;
    std::vector<DescriptorField> fields;

    // The first byte of the data, before the fields (descriptor_tag_extension).
    std::optional<std::uint8_t> extension{};

    [[nodiscard]] bool is_of(
        const orvel::thrift::dvb_tables::Descriptor& descriptor) const;
};

// Returns all forms in the order of their tags. If several are of one descriptor, the
// first says most.
[[nodiscard]] const std::vector<DescriptorForm>& descriptor_forms();

// Returns the first form of the descriptor, or null if it has no name.
[[nodiscard]] const DescriptorForm* form_of(
    const orvel::thrift::dvb_tables::Descriptor& descriptor);

// A field in a descriptor. `bytes` is the content of character codes, languages,
// countries, texts and bytes, and points into the descriptor's data; `number` is the
// value of all other kinds.
struct FieldValue {
    const DescriptorField* field;
    std::uint64_t number;
    std::string_view bytes;
};

// A descriptor cut into its fields. A list has several entries; another descriptor has
// one.
struct SplitDescriptor {
    std::vector<std::vector<FieldValue>> entries;
    std::string overrun;  // what does not fit into the data; empty if all does
};

// Cuts a descriptor's data into fields. Stops at the first field that does not fit.
// `descriptor` must outlive the result. REQUIRES: form.is_of(descriptor).
[[nodiscard]] SplitDescriptor split_descriptor(
    const DescriptorForm& form, const orvel::thrift::dvb_tables::Descriptor& descriptor);

// Returns the service_name of a service descriptor as it is coded. Returns nullopt if the
// descriptor's fields overrun it. REQUIRES: its tag is kServiceTag.
[[nodiscard]] std::optional<std::string_view> service_name_field(
    const orvel::thrift::dvb_tables::Descriptor& descriptor);

// Says which inner length or field runs past the end of the descriptor, as in "service:
// provider_name takes 9 bytes, 5 are left". Returns an empty text if none does or if the
// descriptor has no name.
[[nodiscard]] std::string inner_overrun(
    const orvel::thrift::dvb_tables::Descriptor& descriptor);

#endif
