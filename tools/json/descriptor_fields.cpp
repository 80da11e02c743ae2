#include "tools/json/descriptor_fields.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "dvb/psi_si.h"

namespace {

constexpr unsigned kBitsOfByte = 8;
constexpr unsigned kLanguageBits = 24;

DescriptorField number(const char* name, unsigned bits) {
    return {FieldKind::kNumber, bits, name};
}

DescriptorField hex(const char* name, unsigned bits) {
    return {FieldKind::kHexNumber, bits, name};
}

DescriptorField character_code(const char* name) {
    return {FieldKind::kCharacterCode, 32, name};
}

DescriptorField flag(const char* name) {
    return {FieldKind::kFlag, 1, name};
}

DescriptorField language() {
    return {FieldKind::kLanguage, kLanguageBits, "language"};
}

DescriptorField text(const char* name) {
    return {FieldKind::kText, 0, name};
}

DescriptorField rest(const char* name) {
    return {FieldKind::kRest, 0, name, FieldNeed::kAbsentIfZero};
}

DescriptorField zeros(unsigned bits) {
    return {FieldKind::kZeros, bits, "reserved bits"};
}

DescriptorField ones(unsigned bits) {
    return {FieldKind::kOnes, bits, "reserved bits"};
}

DescriptorField presence_of(const char* name) {
    return {FieldKind::kPresence, 1, name};
}

DescriptorField if_more() {
    return {FieldKind::kIfMore, 0, ""};
}

DescriptorField with(FieldNeed need, DescriptorField field) {
    field.need = need;
    return field;
}

DescriptorField with_note(const char* note, DescriptorField field) {
    field.note = note;
    return field;
}

// Makes a field that is there if its presence flag is 1.
DescriptorField announced(const char* name) {
    return with(FieldNeed::kIfPresenceFlag, hex(name, kBitsOfByte));
}

std::vector<DescriptorForm> all_forms() {
    constexpr bool is_single = false;
    constexpr bool is_list = true;
    constexpr auto zero_if_absent = FieldNeed::kZeroIfAbsent;
    constexpr auto absent_if_zero = FieldNeed::kAbsentIfZero;
    return {
        // ISO/IEC 13818-1, 2.6.8, 2.6.16, 2.6.18 and 2.6.26
        {"registration",
         0x05,
         is_single,
         {character_code("format_identifier"), rest("additional_identification_info")}},
        {"ca",
         kCaTag,
         is_single,
         {hex("ca_system_id", 16), ones(3), hex("ca_pid", 13), rest("private_data")}},
        {"iso_639_language",
         0x0A,
         is_list,
         {language(), with(zero_if_absent, number("audio_type", 8))}},
        {"maximum_bitrate",
         0x0E,
         is_single,
         {ones(2),
          with_note("in units of 50 bytes a second", number("maximum_bitrate", 22))}},
        // ETSI EN 300 468, 6.2
        {"service",
         kServiceTag,
         is_single,
         {number("service_type", 8), text("provider_name"), text("service_name")}},
        {"stream_identifier", 0x52, is_single, {number("component_tag", 8)}},
        {"teletext",
         0x56,
         is_list,
         {language(), number("teletext_type", 5), number("teletext_magazine_number", 3),
          hex("teletext_page_number", 8)}},
        {"subtitling",
         0x59,
         is_list,
         {language(), hex("subtitling_type", 8), number("composition_page_id", 16),
          number("ancillary_page_id", 16)}},
        {"private_data_specifier", 0x5F, is_single, {hex("private_data_specifier", 32)}},
        {"data_broadcast_id",
         0x66,
         is_single,
         {hex("data_broadcast_id", 16), rest("id_selector_bytes")}},
        // ETSI EN 300 468, annex D
        {"ac_3",
         0x6A,
         is_single,
         {presence_of("component_type"), presence_of("bsid"), presence_of("mainid"),
          presence_of("asvc"), with(absent_if_zero, hex("reserved_flags", 4)),
          announced("component_type"), announced("bsid"), announced("mainid"),
          announced("asvc"), rest("additional_info")}},
        // ETSI TS 102 809, 5.3.5.1
        {"application_signalling",
         0x6F,
         is_list,
         {ones(1), hex("application_type", 15), ones(3),
          number("ait_version_number", 5)}},
        // ETSI EN 300 468, annexes D and H
        {"enhanced_ac_3",
         0x7A,
         is_single,
         {presence_of("component_type"), presence_of("bsid"), presence_of("mainid"),
          presence_of("asvc"), with(absent_if_zero, flag("mixinfoexists")),
          presence_of("substream1"), presence_of("substream2"), presence_of("substream3"),
          announced("component_type"), announced("bsid"), announced("mainid"),
          announced("asvc"), announced("substream1"), announced("substream2"),
          announced("substream3"), rest("additional_info")}},
        {"aac",
         0x7C,
         is_single,
         {hex("profile_and_level", 8), if_more(), presence_of("aac_type"),
          with(zero_if_absent, flag("saoc_de_flag")), zeros(6), announced("aac_type"),
          rest("additional_info")}},
    };
}

class BitReader {
public:
    explicit BitReader(std::string_view data) : data_(data) {}

    [[nodiscard]] std::size_t bits_left() const {
        return data_.size() * kBitsOfByte - position_;
    }

    // REQUIRES: `bits` is at most 32, and this number of bits is left.
    std::uint32_t take(unsigned bits) {
        std::uint32_t value = 0;
        for (; bits != 0; --bits, ++position_) {
            const auto byte = static_cast<std::uint8_t>(data_[position_ / kBitsOfByte]);
            const unsigned shift = kBitsOfByte - 1 - position_ % kBitsOfByte;
            value = value << 1 | (byte >> shift & 1U);
        }
        return value;
    }

    // REQUIRES: `size` bytes are left, and the position is at a byte's start.
    std::string_view take_bytes(std::size_t size) {
        const std::string_view bytes = data_.substr(position_ / kBitsOfByte, size);
        position_ += size * kBitsOfByte;
        return bytes;
    }

    std::string_view take_rest() { return take_bytes(bits_left() / kBitsOfByte); }

private:
    std::string_view data_;
    std::size_t position_ = 0;  // in bits
};

bool is_announced(const DescriptorField& field, const std::vector<FieldValue>& before) {
    return std::any_of(before.begin(), before.end(), [&](const FieldValue& value) {
        return value.field->kind == FieldKind::kPresence && value.number != 0 &&
               std::string_view(value.field->name) == field.name;
    });
}

// Takes the field's value. Returns what overruns the data, or an empty text.
std::string take(const DescriptorField& field, BitReader& data, FieldValue& value) {
    if (data.bits_left() < field.bits) {
        return std::string("too short for ") + field.name;
    }
    if (field.kind == FieldKind::kLanguage) {
        value.bytes = data.take_bytes(field.bits / kBitsOfByte);
    } else if (field.kind == FieldKind::kRest) {
        value.bytes = data.take_rest();
    } else if (field.kind == FieldKind::kText) {
        if (data.bits_left() < kBitsOfByte) {
            return std::string("too short for the length of ") + field.name;
        }
        const std::size_t size = data.take(kBitsOfByte);
        const std::size_t left = data.bits_left() / kBitsOfByte;
        if (size > left) {
            return std::string(field.name) + " takes " + std::to_string(size) +
                   " bytes, " + std::to_string(left) + " are left";
        }
        value.bytes = data.take_bytes(size);
    } else {
        value.number = data.take(field.bits);
    }
    return {};
}

// Takes the fields of one entry, as `take` does.
std::string take_entry(const DescriptorForm& form, BitReader& data,
                       std::vector<FieldValue>& entry) {
    for (const DescriptorField& field : form.fields) {
        if (field.kind == FieldKind::kIfMore && data.bits_left() == 0) return {};
        const bool is_absent =
            field.need == FieldNeed::kIfPresenceFlag && !is_announced(field, entry);
        if (field.kind == FieldKind::kIfMore || is_absent) continue;
        FieldValue value{&field, 0, {}};
        std::string overrun = take(field, data, value);
        if (!overrun.empty()) return overrun;
        entry.push_back(value);
    }
    return {};
}

}  // namespace

bool is_in_json(const DescriptorField& field) {
    switch (field.kind) {
        case FieldKind::kZeros:
        case FieldKind::kOnes:
        case FieldKind::kPresence:
        case FieldKind::kIfMore:
            return false;
        case FieldKind::kNumber:
        case FieldKind::kHexNumber:
        case FieldKind::kCharacterCode:
        case FieldKind::kFlag:
        case FieldKind::kLanguage:
        case FieldKind::kText:
        case FieldKind::kRest:
            break;
    }
    return true;
}

std::string coding_field(const char* text_field) {
    return text_field + std::string("_coding");
}

const std::vector<DescriptorForm>& descriptor_forms() {
    static const std::vector<DescriptorForm> forms = all_forms();
    return forms;
}

const DescriptorForm* form_of_tag(std::int32_t tag) {
    for (const DescriptorForm& form : descriptor_forms()) {
        if (form.tag == tag) return &form;
    }
    return nullptr;
}

SplitDescriptor split_descriptor(const DescriptorForm& form, std::string_view data) {
    SplitDescriptor split;
    BitReader reader(data);
    bool is_at_end = form.is_list && data.empty();
    while (!is_at_end) {
        const std::size_t index = split.entries.size();
        const std::string overrun =
            take_entry(form, reader, split.entries.emplace_back());
        if (!overrun.empty()) {
            const std::string place =
                form.is_list ? '[' + std::to_string(index) + ']' : "";
            split.overrun = form.name + place + ": " + overrun;
        }
        is_at_end = !form.is_list || !overrun.empty() || reader.bits_left() == 0;
    }
    return split;
}

std::optional<std::string_view> service_name_field(
    const orvel::thrift::dvb_tables::Descriptor& descriptor) {
    const SplitDescriptor split =
        split_descriptor(*form_of_tag(kServiceTag), descriptor.data);
    if (!split.overrun.empty()) return std::nullopt;
    return split.entries.front().back().bytes;
}

std::string inner_overrun(const orvel::thrift::dvb_tables::Descriptor& descriptor) {
    const DescriptorForm* const form = form_of_tag(descriptor.tag);
    return form == nullptr ? "" : split_descriptor(*form, descriptor.data).overrun;
}
