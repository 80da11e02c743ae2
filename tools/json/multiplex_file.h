#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H

#include <stdexcept>
#include <string>

#include "tools/model/multiplex.h"

// A file cannot be read or has a mistake. The message names the file, the place, and what
// was expected.
class FileMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the tables of a JSON file (see multiplex_json.h; // and /* */ comments are
// allowed). "-" is standard input: it is read once, and later calls use its text again.
// Raises FileMistake.
[[nodiscard]] Multiplex read_multiplex_file(const std::string& path);

#endif
