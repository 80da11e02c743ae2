#include "tools/kestan-monitor/expected_tables.h"

#include <iostream>

#include "tools/files/table_files.h"

std::optional<Multiplex> read_expected_tables(const std::vector<std::string>& paths,
                                              FileKind kind) {
    const ReadFiles read = TableFiles(paths, kind).read(Severity::kWarning);
    const bool is_right = read.mistakes.empty();
    for (const FileFinding& finding : is_right ? read.doubts : read.mistakes)
        std::cerr << "kestan-monitor: " << finding.line() << '\n';
    if (!is_right) return std::nullopt;
    return JoinedFiles(read.files).tables();
}
