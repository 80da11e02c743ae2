#ifndef KESTAN_TOOLS_JSON_DESCRIPTOR_JSON_H
#define KESTAN_TOOLS_JSON_DESCRIPTOR_JSON_H

#include <nlohmann/json.hpp>

#include "thrift/dvb_tables_types.h"
#include "tools/json/json_node.h"

// A descriptor in JSON, raw or named:
//
//   {"tag": "0x52", "data": "01"}
//   {"service": {"service_type": 1, "provider_name": "…", "service_name": "…"}}
//   {"iso_639_language": [{"language": "eng", "audio_type": 0}, …]}
//   {"ca": {"ca_system_id": "0x1234", "ca_pid": "0x0200", "private_data": "…"}}
//
// The named ones are the service descriptor (ETSI EN 300 468, 6.2.33), the ISO 639
// language descriptor and the CA descriptor (ISO/IEC 13818-1, 2.6.18 and 2.6.16), encoded
// and decoded by libdvbpsi. Names are UTF-8, see dvb_text.h. audio_type (0 when left out)
// and private_data (none when left out) are optional.

// Raises JsonMistake.
[[nodiscard]] orvel::thrift::dvb_tables::Descriptor descriptor_from_json(
    const JsonNode& node);

// The named form where it says everything, that is, where it is encoded to the same bytes
// again; raw else.
[[nodiscard]] nlohmann::ordered_json descriptor_to_json(
    const orvel::thrift::dvb_tables::Descriptor& descriptor);

#endif
