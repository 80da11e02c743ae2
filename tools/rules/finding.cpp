#include "tools/rules/finding.h"

std::string place_of(const Finding& finding, std::size_t pmt) {
    std::string place = table_info(finding.table.kind).key;
    if (finding.table.kind == TableKind::kPmt) place += '[' + std::to_string(pmt) + ']';
    return finding.field.empty() ? place : place + '.' + finding.field;
}

std::string place_of(const Finding& finding) {
    return place_of(finding, finding.table.pmt);
}
