#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_OUTPUT_FILE_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_OUTPUT_FILE_H

#include <string>

// Replaces the file `path` with `text` in one step: a reader sees the old content or the
// new content. First writes the text to a file in the same folder whose name ends with
// ".new". Throws std::runtime_error.
void replace_file(const std::string& path, const std::string& text);

#endif
