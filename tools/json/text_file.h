#ifndef KESTAN_TOOLS_JSON_TEXT_FILE_H
#define KESTAN_TOOLS_JSON_TEXT_FILE_H

#include <string>

// What a path may name. A link counts as what it leads to.
enum class FileKind {
    kRegular,        // for programs that must not wait, and that read the file again
    kRegularOrPipe,  // standard input can also be a terminal or a socket
};

// Returns the bytes of the file, at most 64 MB. "-" is standard input.
//
// Opens no device, and waits for no writer of a pipe unless `kind` allows a pipe. Throws
// std::system_error if the system refuses, or else std::runtime_error; what() is the
// reason alone, such as "No such file or directory".
[[nodiscard]] std::string read_text_file(const std::string& path, FileKind kind);

#endif
