#ifndef KESTAN_THRIFT_TABLE_REFUSAL_H
#define KESTAN_THRIFT_TABLE_REFUSAL_H

#include <optional>
#include <string>

#include "thrift/dvb_tables_types.h"

// Says why Kestan cannot carry a table, as one line for a person: the table, the place in
// it and the fault, such as "SDT: service 7: running_status is 9, 0 to 7 fit". Returns
// nullopt if Kestan can carry the table whole.
//
// A table is carried whole if each value fits its field (version_number: 0 to 255), each
// descriptor has at most 255 bytes of data, no PAT program is on PID 0, and the sections
// have room for it (see dvb/section_limits.h). The first fault is reported, in the order
// of the table.
//
// Kestan's converters and the control process use the same rules. Memory exhaustion
// raises std::bad_alloc. The functions share nothing: any thread may call them.
//
// Table is PAT, CAT, SDT or PMT.
template <typename Table>
[[nodiscard]] std::optional<std::string> refusal_reason(const Table& table);

#endif
