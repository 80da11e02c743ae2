#ifndef KESTAN_TOOLS_RECEIVE_TABLE_DECODER_H
#define KESTAN_TOOLS_RECEIVE_TABLE_DECODER_H

#include <optional>

#include "thrift/dvb_tables_types.h"
#include "tools/receive/section_set.h"

// Decode a table with libdvbpsi. Return nullopt if the set is not complete, or if its
// sections are not those of one such table.
[[nodiscard]] std::optional<orvel::thrift::dvb_tables::PAT> decode_pat(
    const SectionSet& table);
[[nodiscard]] std::optional<orvel::thrift::dvb_tables::CAT> decode_cat(
    const SectionSet& table);
[[nodiscard]] std::optional<orvel::thrift::dvb_tables::SDT> decode_sdt(
    const SectionSet& table);  // of the actual transport stream
[[nodiscard]] std::optional<orvel::thrift::dvb_tables::PMT> decode_pmt(
    const SectionSet& table);

#endif
