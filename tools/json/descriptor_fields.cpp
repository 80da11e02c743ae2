#include "tools/json/descriptor_fields.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "dvb/psi_si.h"

using orvel::thrift::dvb_tables::Descriptor;
using namespace std::string_literals;

namespace {

constexpr unsigned kLanguageBits = kLanguageSize * kBitsOfByte;

DescriptorField number(const char* name, unsigned bits) {
    return {FieldKind::kNumber, bits, name};
}

DescriptorField hex(const char* name, unsigned bits) {
    return {FieldKind::kHexNumber, bits, name};
}

DescriptorField flag(const char* name) {
    return {FieldKind::kFlag, 1, name};
}

DescriptorField language() {
    return {FieldKind::kLanguage, kLanguageBits, "language"};
}

DescriptorField text(const char* name, unsigned length_bits = kBitsOfByte) {
    return {FieldKind::kText, length_bits, name};
}

DescriptorField bytes(const char* name) {
    return {FieldKind::kBytes, kBitsOfByte, name};
}

DescriptorField rest(const char* name) {
    return {FieldKind::kBytes, 0, name, FieldNeed::kAbsentIfZero};
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
DescriptorField announced(DescriptorField field) {
    return with(FieldNeed::kIfPresenceFlag, field);
}

// Makes a field that is there if the other one is.
DescriptorField together_with(const char* other, DescriptorField field) {
    field.with = other;
    return announced(field);
}

DescriptorForm single(const char* name, std::uint8_t tag,
                      std::vector<DescriptorField> fields,
                      std::optional<std::uint8_t> extension = std::nullopt) {
    return {name, tag, /*is_list=*/false, std::move(fields), extension};
}

DescriptorForm list(const char* name, std::uint8_t tag,
                    std::vector<DescriptorField> fields) {
    return {name, tag, /*is_list=*/true, std::move(fields)};
}

std::vector<DescriptorForm> all_forms() {
    constexpr auto zero_if_absent = FieldNeed::kZeroIfAbsent;
    constexpr auto absent_if_zero = FieldNeed::kAbsentIfZero;
    constexpr auto absent_if_ones = FieldNeed::kAbsentIfOnes;
    const std::vector<DescriptorField> teletext_pages{
        language(), number("teletext_type", 5), number("teletext_magazine_number", 3),
        with_note("BCD: \"0x88\" is 88",
                  {FieldKind::kBcdNumber, 8, "teletext_page_number"})};
    return {
        // ISO/IEC 13818-1, 2.6
        single("video_stream", 0x02,
               {flag("multiple_frame_rate_flag"), number("frame_rate_code", 4),
                flag("mpeg_1_only_flag"), flag("constrained_parameter_flag"),
                flag("still_picture_flag"), if_more(),
                with(zero_if_absent, hex("profile_and_level_indication", 8)),
                with(zero_if_absent, number("chroma_format", 2)),
                with(zero_if_absent, flag("frame_rate_extension_flag")), ones(5)}),
        single("audio_stream", 0x03,
               {flag("free_format_flag"), number("id", 1), number("layer", 2),
                flag("variable_rate_audio_indicator"), ones(3)}),
        single("hierarchy", 0x04,
               {flag("no_view_scalability_flag"), flag("no_temporal_scalability_flag"),
                flag("no_spatial_scalability_flag"), flag("no_quality_scalability_flag"),
                number("hierarchy_type", 4), ones(2), number("hierarchy_layer_index", 6),
                flag("tref_present_flag"), ones(1),
                number("hierarchy_embedded_layer_index", 6), ones(2),
                number("hierarchy_channel", 6)}),
        single("registration", 0x05,
               {{FieldKind::kCharacterCode, 32, "format_identifier"},
                rest("additional_identification_info")}),
        single("data_stream_alignment", 0x06, {number("alignment_type", 8)}),
        single(
            "ca", kCaTag,
            {hex("ca_system_id", 16), ones(3), hex("ca_pid", 13), rest("private_data")}),
        list("iso_639_language", 0x0A,
             {language(), with(zero_if_absent, number("audio_type", 8))}),
        single("copyright", 0x0D,
               {{FieldKind::kCharacterCode, 32, "copyright_identifier"},
                rest("additional_copyright_info")}),
        single("maximum_bitrate", 0x0E,
               {ones(2), with_note("in units of 50 bytes a second",
                                   number("maximum_bitrate", 22))}),
        single("private_data_indicator", 0x0F, {hex("private_data_indicator", 32)}),
        single("smoothing_buffer", 0x10,
               {ones(2),
                with_note("in units of 400 bits a second", number("sb_leak_rate", 22)),
                ones(2), with_note("in bytes", number("sb_size", 22))}),
        single("std", 0x11, {ones(7), flag("leak_valid_flag")}),
        single("ibp", 0x12,
               {flag("closed_gop_flag"), flag("identical_gop_flag"),
                number("max_gop_length", 14)}),
        // ISO/IEC 13818-6, 11.4
        single("carousel_identifier", 0x13,
               {hex("carousel_id", 32), rest("private_data")}),
        single("association_tag", 0x14,
               {hex("association_tag", 16), hex("use", 16), bytes("selector_bytes"),
                rest("private_data")}),
        // ISO/IEC 13818-1, 2.6
        single("mpeg_4_video", 0x1B, {hex("mpeg_4_visual_profile_and_level", 8)}),
        single("mpeg_4_audio", 0x1C, {hex("mpeg_4_audio_profile_and_level", 8)}),
        single("avc_video", 0x28,
               {number("profile_idc", 8), flag("constraint_set0_flag"),
                flag("constraint_set1_flag"), flag("constraint_set2_flag"),
                flag("constraint_set3_flag"), flag("constraint_set4_flag"),
                flag("constraint_set5_flag"), number("avc_compatible_flags", 2),
                number("level_idc", 8), flag("avc_still_present"),
                flag("avc_24_hour_picture_flag"),
                flag("frame_packing_sei_not_present_flag"), ones(5)}),
        single(
            "avc_timing_and_hrd", 0x2A,
            {flag("hrd_management_valid_flag"), ones(6), presence_of("num_units_in_tick"),
             together_with("num_units_in_tick", {FieldKind::kAbsence, 1, "n"}),
             together_with("num_units_in_tick", ones(7)),
             announced(with_note("of the time base; 90 kHz without it", number("n", 32))),
             together_with("n", number("k", 32)),
             announced(number("num_units_in_tick", 32)), flag("fixed_frame_rate_flag"),
             flag("temporal_poc_flag"), flag("picture_to_display_conversion_flag"),
             ones(5)}),
        single("mpeg_2_aac_audio", 0x2B,
               {hex("mpeg_2_aac_profile", 8), hex("mpeg_2_aac_channel_configuration", 8),
                hex("mpeg_2_aac_additional_information", 8)}),
        single(
            "hevc_video", 0x38,
            {number("profile_space", 2), flag("tier_flag"), number("profile_idc", 5),
             hex("profile_compatibility_indication", 32), flag("progressive_source_flag"),
             flag("interlaced_source_flag"), flag("non_packed_constraint_flag"),
             flag("frame_only_constraint_flag"), hex("copied_44bits", 44),
             number("level_idc", 8), flag("temporal_layer_subset_flag"),
             flag("hevc_still_present_flag"), flag("hevc_24hr_picture_present_flag"),
             flag("sub_pic_hrd_params_not_present_flag"), ones(2),
             number("hdr_wcg_idc", 2),
             // present if temporal_layer_subset_flag is 1
             if_more(), with(zero_if_absent, number("temporal_id_min", 3)), ones(5),
             with(zero_if_absent, number("temporal_id_max", 3)), ones(5)}),
        // ETSI EN 300 468, 6.2
        list("vbi_data", 0x45,
             {hex("data_service_id", 8), bytes("data_service_descriptor")}),
        list("vbi_teletext", 0x46, teletext_pages),
        single("service", kServiceTag,
               {number("service_type", 8), text("provider_name"), text("service_name")}),
        single("country_availability", 0x49,
               {flag("country_availability_flag"),
                ones(7),
                {FieldKind::kCountries, 0, "country_codes"}}),
        single("linkage", 0x4A,
               {hex("transport_stream_id", 16), hex("original_network_id", 16),
                number("service_id", 16), hex("linkage_type", 8), rest("private_data")}),
        list("nvod_reference", 0x4B,
             {hex("transport_stream_id", 16), hex("original_network_id", 16),
              number("service_id", 16)}),
        single("time_shifted_service", 0x4C, {number("reference_service_id", 16)}),
        single("component", 0x50,
               {hex("stream_content_ext", 4), hex("stream_content", 4),
                hex("component_type", 8), number("component_tag", 8), language(),
                text("text", 0)}),
        single("stream_identifier", 0x52, {number("component_tag", 8)}),
        list("ca_identifier", 0x53, {hex("ca_system_id", 16)}),
        list("teletext", 0x56, teletext_pages),
        list("subtitling", 0x59,
             {language(), hex("subtitling_type", 8), number("composition_page_id", 16),
              number("ancillary_page_id", 16)}),
        list("multilingual_service_name", 0x5D,
             {language(), text("provider_name"), text("service_name")}),
        single("private_data_specifier", 0x5F, {hex("private_data_specifier", 32)}),
        single("service_move", 0x60,
               {hex("new_original_network_id", 16), hex("new_transport_stream_id", 16),
                number("new_service_id", 16)}),
        single("data_broadcast", 0x64,
               {hex("data_broadcast_id", 16), number("component_tag", 8),
                bytes("selector_bytes"), language(), text("text")}),
        single("scrambling", 0x65, {hex("scrambling_mode", 8)}),
        single("data_broadcast_id", 0x66,
               {hex("data_broadcast_id", 16), rest("id_selector_bytes")}),
        // ETSI EN 300 468, annex D
        single("ac_3", 0x6A,
               {presence_of("component_type"), presence_of("bsid"), presence_of("mainid"),
                presence_of("asvc"), with(absent_if_zero, hex("reserved_flags", 4)),
                announced(hex("component_type", 8)), announced(hex("bsid", 8)),
                announced(hex("mainid", 8)), announced(hex("asvc", 8)),
                rest("additional_info")}),
        // ETSI EN 300 468, 6.2
        single("ancillary_data", 0x6B, {hex("ancillary_data_identifier", 8)}),
        // ETSI TS 102 809, 5.3.5.1
        list("application_signalling", 0x6F,
             {with(absent_if_ones,
                   with_note("true if left out", flag("reserved_future_use"))),
              hex("application_type", 15), ones(3), number("ait_version_number", 5)}),
        // ETSI EN 300 468, 6.2
        single("adaptation_field_data", 0x70,
               {hex("adaptation_field_data_identifier", 8)}),
        // ETSI TS 102 323, 6.3.1
        single("default_authority", 0x73, {text("default_authority", 0)}),
        // ETSI EN 300 468, annexes D, G and H
        single("enhanced_ac_3", 0x7A,
               {presence_of("component_type"), presence_of("bsid"), presence_of("mainid"),
                presence_of("asvc"), with(absent_if_zero, flag("mixinfoexists")),
                presence_of("substream1"), presence_of("substream2"),
                presence_of("substream3"), announced(hex("component_type", 8)),
                announced(hex("bsid", 8)), announced(hex("mainid", 8)),
                announced(hex("asvc", 8)), announced(hex("substream1", 8)),
                announced(hex("substream2", 8)), announced(hex("substream3", 8)),
                rest("additional_info")}),
        single("dts", 0x7B,
               {number("sample_rate_code", 4), number("bit_rate_code", 6),
                number("nblks", 7), number("fsize", 14), number("surround_mode", 6),
                flag("lfe_flag"), number("extended_surround_flag", 2),
                rest("additional_info")}),
        single("aac", 0x7C,
               {hex("profile_and_level", 8), if_more(), presence_of("aac_type"),
                with(zero_if_absent, flag("saoc_de_flag")), zeros(6),
                announced(hex("aac_type", 8)), rest("additional_info")}),
        // ETSI EN 300 468, 6.2
        single("fta_content_management", 0x7E,
               {flag("user_defined"), ones(3), flag("do_not_scramble"),
                number("control_remote_access_over_internet", 2),
                flag("do_not_apply_revocation")}),
        // ETSI EN 300 468, annex J
        single("supplementary_audio", 0x7F,
               {number("mix_type", 1), hex("editorial_classification", 5), ones(1),
                presence_of("language"), announced(language()), rest("private_data")},
               0x06),
        // ETSI EN 300 468, 6.2
        single("extension", 0x7F,
               {hex("descriptor_tag_extension", 8), rest("selector_bytes")}),
    };
}

class BitReader {
public:
    explicit BitReader(std::string_view data) : data_(data) {}

    [[nodiscard]] std::size_t bits_left() const {
        return data_.size() * kBitsOfByte - position_;
    }

    // REQUIRES: `bits` is at most 64, and this number of bits is left.
    std::uint64_t take(unsigned bits) {
        std::uint64_t value = 0;
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

private:
    std::string_view data_;
    std::size_t position_ = 0;  // in bits
};

bool is_announced(const DescriptorField& field, const std::vector<FieldValue>& before) {
    return std::any_of(before.begin(), before.end(), [&](const FieldValue& value) {
        const FieldKind kind = value.field->kind;
        if (kind != FieldKind::kPresence && kind != FieldKind::kAbsence) return false;
        const bool is_its = std::string_view(value.field->name) == field.announced_as();
        return is_its && (value.number != 0) == (kind == FieldKind::kPresence);
    });
}

// Takes a text or bytes, as `take` does.
std::string take_bytes(const DescriptorField& field, BitReader& data, FieldValue& value) {
    const std::size_t length = data.take(field.bits);
    const std::size_t left = data.bits_left() / kBitsOfByte;
    value.bytes = data.take_bytes(field.bits == 0 ? left : std::min(length, left));
    if (length <= left) return {};
    return fmt::format("{} takes {} bytes, {} are left", field.name, length, left);
}

// Takes the field's value. Returns what overruns the data, or an empty text.
std::string take(const DescriptorField& field, BitReader& data, FieldValue& value) {
    const bool may_have_length =
        field.kind == FieldKind::kText || field.kind == FieldKind::kBytes;
    if (data.bits_left() < field.bits) {
        return (may_have_length ? "too short for the length of "s : "too short for ") +
               field.name;
    }
    if (may_have_length) return take_bytes(field, data, value);
    switch (field.kind) {
        case FieldKind::kCharacterCode:
        case FieldKind::kLanguage:
            value.bytes = data.take_bytes(field.bits / kBitsOfByte);
            return {};
        case FieldKind::kCountries:
            value.bytes = data.take_bytes(data.bits_left() / kBitsOfByte);
            if (value.bytes.size() % kLanguageSize == 0) return {};
            return "too short for the last of "s + field.name;
        default:
            value.number = data.take(field.bits);
            return {};
    }
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
    constexpr FieldKind implied[] = {FieldKind::kZeros, FieldKind::kOnes,
                                     FieldKind::kPresence, FieldKind::kAbsence,
                                     FieldKind::kIfMore};
    return std::find(std::begin(implied), std::end(implied), field.kind) ==
           std::end(implied);
}

std::string coding_field(const char* text_field) {
    return text_field + "_coding"s;
}

const std::vector<DescriptorForm>& descriptor_forms() {
    static const std::vector<DescriptorForm> forms = all_forms();
    return forms;
}

const DescriptorForm* form_of(const Descriptor& descriptor) {
    const auto& forms = descriptor_forms();
    const auto found =
        std::find_if(forms.begin(), forms.end(),
                     [&](const DescriptorForm& form) { return form.is_of(descriptor); });
    return found == forms.end() ? nullptr : &*found;
}

bool DescriptorForm::is_of(const Descriptor& descriptor) const {
    if (descriptor.tag != tag) return false;
    if (!extension) return true;
    return !descriptor.data.empty() &&
           static_cast<std::uint8_t>(descriptor.data.front()) == *extension;
}

SplitDescriptor split_descriptor(const DescriptorForm& form,
                                 const Descriptor& descriptor) {
    std::string_view data = descriptor.data;
    if (form.extension) data.remove_prefix(1);
    BitReader reader(data);
    SplitDescriptor split;
    const auto has_more = [&] {
        return form.is_list ? reader.bits_left() != 0 : split.entries.empty();
    };
    while (split.overrun.empty() && has_more()) {
        const std::string overrun =
            take_entry(form, reader, split.entries.emplace_back());
        if (overrun.empty()) continue;
        const std::size_t index = split.entries.size() - 1;
        split.overrun = form.is_list
                            ? fmt::format("{}[{}]: {}", form.name, index, overrun)
                            : fmt::format("{}: {}", form.name, overrun);
    }
    return split;
}

std::optional<std::string_view> service_name_field(const Descriptor& descriptor) {
    const SplitDescriptor split = split_descriptor(*form_of(descriptor), descriptor);
    if (!split.overrun.empty()) return std::nullopt;
    return split.entries.front().back().bytes;
}

std::string inner_overrun(const Descriptor& descriptor) {
    const DescriptorForm* const form = form_of(descriptor);
    return form == nullptr ? "" : split_descriptor(*form, descriptor).overrun;
}
