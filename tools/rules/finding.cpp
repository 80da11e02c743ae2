#include "tools/rules/finding.h"

std::string_view name_of(Severity severity) {
    switch (severity) {
        case Severity::kError:
            return "error";
        case Severity::kWarning:
            return "warning";
        case Severity::kInformation:
            break;
    }
    return "information";
}

std::string place_of(const Finding& finding, std::size_t pmt) {
    std::string place = table_info(finding.table.kind).key;
    if (finding.table.kind == TableKind::kPmt) place += '[' + std::to_string(pmt) + ']';
    return finding.field.empty() ? place : place + '.' + finding.field;
}

std::string place_of(const Finding& finding) {
    return place_of(finding, finding.table.pmt);
}
