#ifndef KESTAN_TABLES_TABLE_PACKETS_H
#define KESTAN_TABLES_TABLE_PACKETS_H

#include <cstdint>
#include <string>

#include "dvb/libdvbpsi.h"

// Returns the transport packets of a converted table on `pid` (0 to 0x1FFF, not checked):
// libdvbpsi makes its sections, and packetize_sections cuts them. Returns an empty string
// if libdvbpsi makes no section. Throws std::bad_alloc if memory is exhausted.
//
// libdvbpsi takes tables that are not const. Each table is unchanged when the function
// returns. REQUIRES: a converter returned the table, so its sections have room for it
// (see framework/table_converters.h).
//
// The functions share nothing: any thread may call them.
//
// Table is dvbpsi_pat_t, dvbpsi_cat_t, dvbpsi_sdt_t or dvbpsi_pmt_t.
template <typename Table>
[[nodiscard]] std::string table_packets(Table& table, std::uint16_t pid);

#endif
