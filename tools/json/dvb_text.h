#ifndef KESTAN_TOOLS_JSON_DVB_TEXT_H
#define KESTAN_TOOLS_JSON_DVB_TEXT_H

#include <optional>
#include <string>

// Text fields of DVB descriptors (ETSI EN 300 468, annex A) as UTF-8.
//
// Written are two of the character codings: printable ASCII goes without a selector (it
// is the same in the default table), any other text as UTF-8 behind its selector, 0x15.

// Nothing for a text that is not UTF-8 or has control characters of ASCII.
[[nodiscard]] std::optional<std::string> encode_dvb_text(const std::string& text);

// Nothing for a field that encode_dvb_text would not have written, byte by byte: other
// codings, that is, and a selector that was not needed.
[[nodiscard]] std::optional<std::string> decode_dvb_text(const std::string& field);

#endif
