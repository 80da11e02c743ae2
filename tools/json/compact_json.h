#ifndef KESTAN_TOOLS_JSON_COMPACT_JSON_H
#define KESTAN_TOOLS_JSON_COMPACT_JSON_H

#include <cstddef>
#include <string>

#include <nlohmann/json.hpp>

// Writes JSON for people: an object or array that fits into the rest of its line stands
// on it. Another one has a line per object in it; numbers, texts and lists of these share
// lines. `width` is in bytes. The text ends without a line break.
[[nodiscard]] std::string compact_json(const nlohmann::ordered_json& value,
                                       std::size_t width);

#endif
