#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/multiplex.h"

// A file that cannot be read, or a mistake in it: which file, where, what was expected.
class FileMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The tables of one JSON file. Raises FileMistake.
[[nodiscard]] Multiplex read_multiplex_file(const std::string& path);

// The tables of JSON files (see multiplex_json.h; // and /* */ comments are allowed)
// together. Raises FileMistake, also for a table that two files have: Kestan plays one
// of each, and which one the writer means can't be known.
[[nodiscard]] Multiplex read_multiplex_files(const std::vector<std::string>& paths);

#endif
