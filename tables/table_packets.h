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

// At most 100 programs per section, so a receiver soon gets a whole section.
[[nodiscard]] std::string table_packets(dvbpsi_pat_t& pat, std::uint16_t pid);

[[nodiscard]] std::string table_packets(dvbpsi_cat_t& cat, std::uint16_t pid);

// libdvbpsi's generator loses descriptors where a service crosses a section's border, and
// it writes past its block when services alone fill a section. So it is called once for
// each group of services that fits one section. Then the sections are renumbered.
[[nodiscard]] std::string table_packets(dvbpsi_sdt_t& sdt, std::uint16_t pid);

[[nodiscard]] std::string table_packets(dvbpsi_pmt_t& pmt, std::uint16_t pid);

#endif
