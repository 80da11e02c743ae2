#ifndef KESTAN_TOOLS_RECEIVE_TABLE_DECODER_H
#define KESTAN_TOOLS_RECEIVE_TABLE_DECODER_H

#include <optional>

#include "thrift/dvb_tables_types.h"
#include "tools/receive/section_set.h"

// Decodes a table with libdvbpsi. Returns nullopt if the set is not complete, or if its
// sections are not those of one such table. Table is PAT, CAT, SDT (of the actual
// transport stream) or PMT.
template <typename Table>
[[nodiscard]] std::optional<Table> decode_table(const SectionSet& sections);

#endif
