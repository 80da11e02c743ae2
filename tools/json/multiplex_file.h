#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/json/text_file.h"
#include "tools/model/multiplex.h"

// A file cannot be read or has a mistake. what() is the path and the text.
class FileMistake : public std::runtime_error {
public:
    FileMistake(const std::string& path, const std::string& text)
        : std::runtime_error(path + ": " + text), text_(text) {}

    // Returns the place in the file, and what was expected.
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string text_;
};

// Reads the tables of a JSON file (see multiplex_json.h; // and /* */ comments are
// allowed). "-" is standard input: it is read once, and later calls use its text again.
// See text_file.h for `kind` and for the largest file. Appends the doubts (see
// json_node.h), unless `doubts` is null. Raises FileMistake.
[[nodiscard]] Multiplex read_multiplex_file(const std::string& path,
                                            FileKind kind = FileKind::kRegularOrPipe,
                                            std::vector<std::string>* doubts = nullptr);

#endif
