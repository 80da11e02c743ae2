#ifndef KESTAN_TABLES_TABLE_PACKETS_H
#define KESTAN_TABLES_TABLE_PACKETS_H

#include <cstdint>
#include <string>

#include "dvb/libdvbpsi.h"

// The transport packets of a converted table on `pid` (0 to 0x1FFF, not checked): its
// sections as libdvbpsi makes them, cut by packetize_sections. Empty if libdvbpsi makes
// no section. Memory exhaustion raises std::bad_alloc.
//
// REQUIRES: a converter returned the table, so that it fits its sections (see
// framework/table_converters.h). libdvbpsi takes tables that are not const; each table is
// the same when the function returns.
//
// The functions share nothing: any thread may call them.

// At most 100 programs in each section: a receiver gets its first section soon.
[[nodiscard]] std::string table_packets(dvbpsi_pat_t& pat, std::uint16_t pid);

[[nodiscard]] std::string table_packets(dvbpsi_cat_t& cat, std::uint16_t pid);

// libdvbpsi's generator loses descriptors where a service crosses a section's border, and
// it writes past its block when services alone fill a section. So it is called once for
// each group of services that fits one section, and the sections are then renumbered.
[[nodiscard]] std::string table_packets(dvbpsi_sdt_t& sdt, std::uint16_t pid);

[[nodiscard]] std::string table_packets(dvbpsi_pmt_t& pmt, std::uint16_t pid);

#endif
