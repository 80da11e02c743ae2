#include "tools/rules/rules.h"

#include <algorithm>

#include "tools/rules/rule_functions.h"

const std::vector<Rule>& all_rules() {
    constexpr auto error = Severity::kError;
    constexpr auto warning = Severity::kWarning;
    static const std::vector<Rule> rules{
        {"service_with_two_pmts", error, "ISO/IEC 13818-1, 2.4.4.8",
         check_service_with_two_pmts},
        {"program_twice_in_pat", error, "ISO/IEC 13818-1, 2.4.4.5",
         check_program_twice_in_pat},
        {"service_twice_in_sdt", error, "ETSI EN 300 468, 5.2.3",
         check_service_twice_in_sdt},
        {"pmt_of_program_0", error, "ISO/IEC 13818-1, 2.4.4.5", check_pmt_of_program_0},
        {"pmt_on_reserved_pid", error,
         "ISO/IEC 13818-1, table 2-3; ETSI EN 300 468, table 1",
         check_pmt_on_reserved_pid},
        {"pmt_on_stream_pid", error, "ISO/IEC 13818-1, 2.4.4", check_pmt_on_stream_pid},
        {"pmt_not_where_announced", error, "ISO/IEC 13818-1, 2.4.4.5",
         check_pmt_not_where_announced},
        {"elementary_pid_twice", error, "ISO/IEC 13818-1, 2.4.4.9",
         check_elementary_pid_twice},
        {"table_refused", error, "ISO/IEC 13818-1, 2.4.4; ETSI EN 300 468, 5.1.1",
         check_table_refused},
        {"descriptor_overrun", error, "ISO/IEC 13818-1, 2.6; ETSI EN 300 468, 6.2",
         check_descriptor_overrun},
        {"pat_missing", warning, "ISO/IEC 13818-1, 2.4.4", check_pat_missing},
        {"service_without_pmt", warning, "ISO/IEC 13818-1, 2.4.4.5",
         check_service_without_pmt},
        {"pmt_not_in_pat", warning, "ISO/IEC 13818-1, 2.4.4.5", check_pmt_not_in_pat},
        {"sdt_service_not_in_pat", warning, "ETSI EN 300 468, 5.2.3",
         check_sdt_service_not_in_pat},
        {"transport_stream_id_differs", warning, "ETSI EN 300 468, 5.2.3",
         check_transport_stream_id_differs},
        {"pcr_pid_without_stream", warning, "ISO/IEC 13818-1, 2.4.4.9",
         check_pcr_pid_without_stream},
        {"ca_system_not_in_cat", warning, "ISO/IEC 13818-1, 2.6.16",
         check_ca_system_not_in_cat},
        {"free_ca_mode_differs", warning, "ETSI EN 300 468, 5.2.3",
         check_free_ca_mode_differs},
        {"service_without_name", warning, "ETSI TS 101 211, 4.2",
         check_service_without_name},
        {"stream_type_differs", warning, "ISO/IEC 13818-1, 2.4.4.9",
         check_stream_type_differs},
        {"not_in_force", warning, "ISO/IEC 13818-1, 2.4.4.5", check_not_in_force},
        {"version_above_31", warning, "ISO/IEC 13818-1, 2.4.4.5", check_version_above_31},
        {"network_pid_missing", Severity::kInformation, "ISO/IEC 13818-1, 2.4.4.5",
         check_network_pid_missing},
    };
    return rules;
}

std::vector<Finding> check_tables(const Multiplex& multiplex) {
    const TableIndex tables(multiplex);
    std::vector<Finding> findings;
    for (const Rule& rule : all_rules()) {
        Finding pattern;
        pattern.severity = rule.severity;
        pattern.rule = rule.name;
        pattern.clause = rule.clause;
        RuleReport report(pattern, findings);
        rule.check(tables, report);
    }
    return findings;
}

bool has_errors(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::kError;
    });
}
