#ifndef KESTAN_TABLES_SECTION_PACKETIZER_H
#define KESTAN_TABLES_SECTION_PACKETIZER_H

#include <cstdint>
#include <string>

#include "dvb/libdvbpsi.h"

// Cuts a chain of sections into transport packets on `pid` (0 to 0x1FFF, not checked):
// whole packets back to back, in the order of the chain, continuity counters from 0 on.
//
// Each section begins in a packet of its own, after a pointer_field of 0, and the rest of
// its last packet is stuffing (ISO/IEC 13818-1, 2.4.4): a player can change tables at any
// section start. The chain is not null; it stays the caller's, and is not changed.
[[nodiscard]] std::string packetize_sections(const dvbpsi_psi_section_t* first_section,
                                             std::uint16_t pid);

#endif
