#ifndef KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H
#define KESTAN_TOOLS_JSON_MULTIPLEX_FILE_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/json/text_file.h"
#include "tools/model/multiplex.h"

// What was found in a file, for a person.
struct FileRemark {
    std::size_t line = 0;  // 0 if it concerns the file as a whole
    std::string text;      // the place, what was found there, and what was expected
};

// A file cannot be read or has mistakes. what() has a line for each, with the path.
class FileMistake : public std::runtime_error {
public:
    // REQUIRES: there is a remark.
    FileMistake(const std::string& path, std::vector<FileRemark> remarks);

    // Returns the mistakes in the order of their lines. If a file has many, the last
    // remark says how many are left out.
    [[nodiscard]] const std::vector<FileRemark>& remarks() const { return remarks_; }

private:
    std::vector<FileRemark> remarks_;
};

// Reads the tables of a JSON file (see multiplex_json.h; // and /* */ comments are
// allowed). "-" is standard input: it is read once, and later calls use its text again.
// See text_file.h for `kind` and for the largest file. Appends the doubts (see
// json_node.h), unless `doubts` is null. Raises FileMistake, also after that.
[[nodiscard]] Multiplex read_multiplex_file(const std::string& path,
                                            FileKind kind = FileKind::kRegularOrPipe,
                                            std::vector<FileRemark>* doubts = nullptr);

#endif
