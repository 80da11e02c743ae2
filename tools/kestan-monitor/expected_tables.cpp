#include "tools/kestan-monitor/expected_tables.h"

#include "tools/files/table_files.h"
#include "tools/service/diagnostics.h"

std::optional<Multiplex> read_expected_tables(const std::vector<std::string>& paths,
                                              FileKind kind) {
    const ReadFiles read = TableFiles(paths, kind).read(Severity::kWarning);
    const bool is_valid = read.mistakes.empty();
    for (const FileFinding& finding : is_valid ? read.doubts : read.mistakes)
        complain(finding.severity, "kestan-monitor: " + finding.line());
    if (!is_valid) return std::nullopt;
    return JoinedFiles(read.files).tables();
}
