#include "tools/json/descriptor_json.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dvb/libdvbpsi.h"
#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "tools/json/dvb_text.h"
#include "tools/json/number_text.h"

using nlohmann::ordered_json;
using orvel::thrift::dvb_tables::Descriptor;

namespace {

constexpr std::uint8_t kCaTag = 0x09;
constexpr std::uint8_t kIso639Tag = 0x0A;
constexpr std::uint8_t kServiceTag = 0x48;

// What a descriptor has beside its names, languages or private data.
constexpr std::size_t kServiceFixedSize = 3;
constexpr std::size_t kCaFixedSize = 4;
constexpr std::size_t kIso639EntrySize = 4;
constexpr std::size_t kLanguageSize = 3;

std::string_view as_text(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

// Takes what one of libdvbpsi's generators returned.
Descriptor to_thrift(dvbpsi_descriptor_t* generated) {
    const DescriptorPtr owner(generated);
    if (!owner) throw std::bad_alloc();
    Descriptor descriptor;
    descriptor.tag = owner->i_tag;
    descriptor.data = as_text(owner->p_data, owner->i_length);
    return descriptor;
}

DescriptorPtr to_dvbpsi(const Descriptor& from) {
    std::string data = from.data;
    DescriptorPtr descriptor(dvbpsi_NewDescriptor(
        static_cast<std::uint8_t>(from.tag), static_cast<std::uint8_t>(data.size()),
        reinterpret_cast<std::uint8_t*>(data.data())));
    if (!descriptor) throw std::bad_alloc();
    return descriptor;
}

std::string encoded_name(const JsonNode& node) {
    const std::optional<std::string> name = encode_dvb_text(node.text());
    if (!name) node.mistake("a name without control characters");
    return *name;
}

Descriptor service_from_json(const JsonNode& node) {
    node.expect_fields({"service_type", "provider_name", "service_name"});
    dvbpsi_service_dr_t decoded{};
    decoded.i_service_type =
        static_cast<std::uint8_t>(node["service_type"].number(0, 0xFF));
    const std::string provider = encoded_name(node["provider_name"]);
    const std::string service = encoded_name(node["service_name"]);
    if (kServiceFixedSize + provider.size() + service.size() > kMaxDescriptorData) {
        node.mistake("names of at most 252 bytes together");
    }
    decoded.i_service_provider_name_length = static_cast<std::uint8_t>(provider.size());
    provider.copy(reinterpret_cast<char*>(decoded.i_service_provider_name),
                  provider.size());
    decoded.i_service_name_length = static_cast<std::uint8_t>(service.size());
    service.copy(reinterpret_cast<char*>(decoded.i_service_name), service.size());
    return to_thrift(dvbpsi_GenServiceDr(&decoded, /*b_duplicate=*/false));
}

std::optional<ordered_json> service_to_json(dvbpsi_descriptor_t* descriptor) {
    const dvbpsi_service_dr_t* const decoded = dvbpsi_DecodeServiceDr(descriptor);
    if (decoded == nullptr) return std::nullopt;
    const std::size_t provider_size = decoded->i_service_provider_name_length;
    const std::size_t service_size = decoded->i_service_name_length;
    // With lengths that do not fit, libdvbpsi leaves the names as the memory was.
    if (kServiceFixedSize + provider_size + service_size != descriptor->i_length) {
        return std::nullopt;
    }
    const auto provider = decode_dvb_text(
        std::string(as_text(decoded->i_service_provider_name, provider_size)));
    const auto service =
        decode_dvb_text(std::string(as_text(decoded->i_service_name, service_size)));
    if (!provider || !service) return std::nullopt;
    return ordered_json{{"service_type", decoded->i_service_type},
                        {"provider_name", *provider},
                        {"service_name", *service}};
}

Descriptor iso_639_from_json(const JsonNode& node) {
    const std::vector<JsonNode> entries = node.elements();
    dvbpsi_iso639_dr_t decoded{};
    constexpr std::size_t max_entries = kMaxDescriptorData / kIso639EntrySize;
    static_assert(max_entries <= std::size(decltype(decoded.code){}));
    if (entries.size() > max_entries) node.mistake("at most 63 languages");
    for (const JsonNode& entry : entries) {
        entry.expect_fields({"language", "audio_type"});
        const JsonNode language = entry["language"];
        const auto code = encode_dvb_text(language.text());
        if (!code || code->size() != kLanguageSize) {
            language.mistake("a code of three letters, as in \"eng\"");
        }
        auto& to = decoded.code[decoded.i_code_count++];
        std::copy(code->begin(), code->end(), to.iso_639_code);
        if (entry.has("audio_type")) {
            to.i_audio_type =
                static_cast<std::uint8_t>(entry["audio_type"].number(0, 0xFF));
        }
    }
    return to_thrift(dvbpsi_GenISO639Dr(&decoded, /*b_duplicate=*/false));
}

std::optional<ordered_json> iso_639_to_json(dvbpsi_descriptor_t* descriptor) {
    const dvbpsi_iso639_dr_t* const decoded = dvbpsi_DecodeISO639Dr(descriptor);
    if (decoded == nullptr) return std::nullopt;
    ordered_json entries = ordered_json::array();
    for (std::size_t i = 0; i < decoded->i_code_count; ++i) {
        const auto& code = decoded->code[i];
        const auto language =
            decode_dvb_text(std::string(as_text(code.iso_639_code, kLanguageSize)));
        if (!language) return std::nullopt;
        entries.push_back({{"language", *language}, {"audio_type", code.i_audio_type}});
    }
    return entries;
}

Descriptor ca_from_json(const JsonNode& node) {
    node.expect_fields({"ca_system_id", "ca_pid", "private_data"});
    dvbpsi_ca_dr_t decoded{};
    decoded.i_ca_system_id =
        static_cast<std::uint16_t>(node["ca_system_id"].number(0, 0xFFFF));
    decoded.i_ca_pid = static_cast<std::uint16_t>(node["ca_pid"].number(0, kMaxPid));
    if (node.has("private_data")) {
        const JsonNode field = node["private_data"];
        const std::string bytes = field.bytes();
        if (kCaFixedSize + bytes.size() > kMaxDescriptorData) {
            field.mistake("at most 251 bytes");
        }
        decoded.i_private_length = static_cast<std::uint8_t>(bytes.size());
        bytes.copy(reinterpret_cast<char*>(decoded.i_private_data), bytes.size());
    }
    return to_thrift(dvbpsi_GenCADr(&decoded, /*b_duplicate=*/false));
}

std::optional<ordered_json> ca_to_json(dvbpsi_descriptor_t* descriptor) {
    const dvbpsi_ca_dr_t* const decoded = dvbpsi_DecodeCADr(descriptor);
    if (decoded == nullptr) return std::nullopt;
    ordered_json fields{{"ca_system_id", hex_number(decoded->i_ca_system_id, 4)},
                        {"ca_pid", hex_number(decoded->i_ca_pid, 4)}};
    if (decoded->i_private_length != 0) {
        fields["private_data"] =
            to_hex(as_text(decoded->i_private_data, decoded->i_private_length));
    }
    return fields;
}

struct NamedForm {
    const char* name;
    std::uint8_t tag;
    Descriptor (*from_json)(const JsonNode& node);
    // Nothing for a descriptor that the form has no way to say.
    std::optional<ordered_json> (*to_json)(dvbpsi_descriptor_t* descriptor);
};

constexpr NamedForm kNamedForms[] = {
    {"service", kServiceTag, service_from_json, service_to_json},
    {"iso_639_language", kIso639Tag, iso_639_from_json, iso_639_to_json},
    {"ca", kCaTag, ca_from_json, ca_to_json},
};

std::optional<ordered_json> named_form_of(const Descriptor& descriptor) {
    for (const NamedForm& form : kNamedForms) {
        if (form.tag != descriptor.tag) continue;
        const std::optional<ordered_json> fields =
            form.to_json(to_dvbpsi(descriptor).get());
        if (!fields) return std::nullopt;
        ordered_json named;
        named[form.name] = *fields;
        const nlohmann::json document = named;
        if (descriptor_from_json(JsonNode(document)) == descriptor) return named;
    }
    return std::nullopt;
}

}  // namespace

Descriptor descriptor_from_json(const JsonNode& node) {
    node.expect_fields({"tag", "data", "service", "iso_639_language", "ca"});
    for (const NamedForm& form : kNamedForms) {
        if (!node.has(form.name)) continue;
        node.expect_fields({form.name});
        return form.from_json(node[form.name]);
    }
    Descriptor descriptor;
    descriptor.tag = node["tag"].number(0, 0xFF);
    const JsonNode data = node["data"];
    descriptor.data = data.bytes();
    if (descriptor.data.size() > kMaxDescriptorData) data.mistake("at most 255 bytes");
    return descriptor;
}

ordered_json descriptor_to_json(const Descriptor& descriptor) {
    if (const auto named = named_form_of(descriptor)) return *named;
    return {{"tag", hex_number(descriptor.tag, 2)}, {"data", to_hex(descriptor.data)}};
}
