#ifndef KESTAN_TOOLS_JSON_DESCRIPTOR_JSON_H
#define KESTAN_TOOLS_JSON_DESCRIPTOR_JSON_H

#include <nlohmann/json.hpp>

#include "thrift/dvb_tables_types.h"
#include "tools/json/json_node.h"

// A descriptor in JSON, raw or by name:
//
//   {"tag": "0x83", "data": "01"}
//   {"service": {"service_type": 1, "provider_name": "…", "service_name": "…"}}
//   {"iso_639_language": [{"language": "eng", "audio_type": 0}, …]}
//   {"ca": {"ca_system_id": "0x1234", "ca_pid": "0x0200", "private_data": "…"}}
//
// descriptor_fields.h has the names and their fields. Texts are UTF-8, see dvb_text.h.

// Makes a descriptor of its JSON. Raises JsonMistake.
[[nodiscard]] orvel::thrift::dvb_tables::Descriptor descriptor_from_json(
    const JsonNode& node);

// Writes a descriptor by name if reading that gives the same bytes again, raw otherwise.
[[nodiscard]] nlohmann::ordered_json descriptor_to_json(
    const orvel::thrift::dvb_tables::Descriptor& descriptor);

#endif
