#include "tools/rules/finding.h"

namespace {

std::string name_of(TableKind kind, std::size_t pmt) {
    switch (kind) {
        case TableKind::kPat:
            return "pat";
        case TableKind::kCat:
            return "cat";
        case TableKind::kSdt:
            return "sdt";
        case TableKind::kPmt:
            break;
    }
    return "pmts[" + std::to_string(pmt) + ']';
}

}  // namespace

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
    const std::string table = name_of(finding.table.kind, pmt);
    return finding.field.empty() ? table : table + '.' + finding.field;
}

std::string place_of(const Finding& finding) {
    return place_of(finding, finding.table.pmt);
}
