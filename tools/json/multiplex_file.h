#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/multiplex.h"

// A file cannot be read or has a mistake: which file, where, what was expected.
class FileMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the tables of all JSON files (see multiplex_json.h; // and /* */ comments are
// allowed). "-" is standard input: it is read once, and later calls use its text again.
// Raises FileMistake, also if two files have the same table: Kestan plays one of each,
// and which one the writer means can't be known.
[[nodiscard]] Multiplex read_multiplex_files(const std::vector<std::string>& paths);

#endif
