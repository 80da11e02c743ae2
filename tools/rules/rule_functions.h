#ifndef KESTAN_TOOLS_RULES_RULE_FUNCTIONS_H
#define KESTAN_TOOLS_RULES_RULE_FUNCTIONS_H

#include "tools/rules/rule_report.h"
#include "tools/rules/table_index.h"

// One function per rule; rules.cpp has the table of them.

// pid_rules.cpp: which PID carries what.
void check_pmt_on_reserved_pid(const TableIndex& tables, RuleReport& report);
void check_pmt_on_stream_pid(const TableIndex& tables, RuleReport& report);
void check_pmt_not_where_announced(const TableIndex& tables, RuleReport& report);
void check_elementary_pid_twice(const TableIndex& tables, RuleReport& report);
void check_pcr_pid_without_stream(const TableIndex& tables, RuleReport& report);
void check_stream_type_differs(const TableIndex& tables, RuleReport& report);
void check_network_pid_missing(const TableIndex& tables, RuleReport& report);

// service_rules.cpp: which table has which service.
void check_service_with_two_pmts(const TableIndex& tables, RuleReport& report);
void check_program_twice_in_pat(const TableIndex& tables, RuleReport& report);
void check_service_twice_in_sdt(const TableIndex& tables, RuleReport& report);
void check_pmt_of_program_0(const TableIndex& tables, RuleReport& report);
void check_pat_missing(const TableIndex& tables, RuleReport& report);
void check_service_without_pmt(const TableIndex& tables, RuleReport& report);
void check_pmt_not_in_pat(const TableIndex& tables, RuleReport& report);
void check_sdt_service_not_in_pat(const TableIndex& tables, RuleReport& report);
void check_service_without_name(const TableIndex& tables, RuleReport& report);

// table_rules.cpp: a table by itself.
void check_table_refused(const TableIndex& tables, RuleReport& report);
void check_descriptor_overrun(const TableIndex& tables, RuleReport& report);
void check_version_above_31(const TableIndex& tables, RuleReport& report);
void check_not_in_force(const TableIndex& tables, RuleReport& report);
void check_transport_stream_id_differs(const TableIndex& tables, RuleReport& report);

// ca_rules.cpp: conditional access.
void check_ca_system_not_in_cat(const TableIndex& tables, RuleReport& report);
void check_free_ca_mode_differs(const TableIndex& tables, RuleReport& report);

#endif
