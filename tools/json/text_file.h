#ifndef KESTAN_TOOLS_JSON_TEXT_FILE_H
#define KESTAN_TOOLS_JSON_TEXT_FILE_H

#include <string>
#include <string_view>

constexpr const char* kStandardInput = "-";  // its path

// What a path may name. A link counts as what it leads to.
enum class FileKind {
    kRegular,        // for programs that must not wait, and that read the file again
    kRegularOrPipe,  // standard input can also be a terminal or a socket
};

// Returns the bytes of the file or of standard input, at most 64 MB.
//
// Opens no device, and waits for no writer of a pipe unless `kind` allows a pipe. Throws
// std::system_error if the system refuses, or else std::runtime_error; what() is the
// reason alone, such as "No such file or directory".
[[nodiscard]] std::string read_text_file(const std::string& path, FileKind kind);

// Who reads a file that is written, and what a loss of power may do to it.
enum class FileUse {
    kState,   // its owner alone; the old or the new text is there after a loss of power
    kReport,  // all that the umask lets; the file may be empty after a loss of power
};

// Replaces the file `path` with `text` in one step: a reader sees the old text or the new
// one. The text is first written to a new file in the same folder, whose name ends with
// six letters and digits. That one is removed if this fails, which throws
// std::system_error; the message of its code is the reason.
void replace_text_file(const std::string& path, std::string_view text, FileUse use);

#endif
