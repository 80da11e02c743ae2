#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_JSON_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_JSON_H

#include <nlohmann/json.hpp>

#include "thrift/table_fields.h"
#include "tools/json/json_node.h"
#include "tools/model/multiplex.h"

// The tables of a multiplex in JSON:
//
//   {
//     "pat": {"transport_stream_id": 1, "version_number": 0,
//             "programs": [{"program_number": 101, "pid": "0x0100"}]},
//     "cat": {"version_number": 0, "descriptors": [...]},
//     "sdt": {"transport_stream_id": 1, "original_network_id": 1, "version_number": 0,
//             "services": [{"service_id": 101, "running_status": 4, "descriptors":
//             [...]}]},
//     "pmts": [{"pid": "0x0100", "program_number": 101, "version_number": 0,
//               "pcr_pid": "0x0101", "descriptors": [...],
//               "streams": [{"stream_type": 2, "elementary_pid": "0x0101",
//                            "descriptors": [...]}]}]
//   }
//
// thrift/table_fields.h has the names, ranges and defaults; every table and every list
// may be left out, but not all tables. Descriptors are as in descriptor_json.h. A field
// "$schema" at the top is for editors; multiplex.schema.json is the schema.

// What a PMT has in JSON alone, before its other fields: the PID that carries it.
constexpr orvel::thrift::dvb_tables::NumberField kPmtPidField =
    orvel::thrift::dvb_tables::pid_field("pid", "the PID of the PMT");

// Reads the tables. If the node has no findings, raises JsonMistake. Otherwise reads on
// after a mistake and keeps all of them; the tables are right only if there are none.
[[nodiscard]] Multiplex multiplex_from_json(const JsonNode& root);

// Writes the tables. Leaves out fields that have their default.
[[nodiscard]] nlohmann::ordered_json multiplex_to_json(const Multiplex& multiplex);

#endif
