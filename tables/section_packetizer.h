#ifndef KESTAN_TABLES_SECTION_PACKETIZER_H
#define KESTAN_TABLES_SECTION_PACKETIZER_H

#include <cstdint>
#include <string>

#include "dvb/libdvbpsi.h"

// Cuts a chain of sections into transport packets on `pid` (0 to 0x1FFF, not checked).
// Returns whole packets back to back, in the order of the chain, with continuity counters
// from 0 on. The caller keeps the chain. REQUIRES: `first_section` is not null.
//
// Each section begins in a new packet, after a pointer_field of 0, and stuffing fills its
// last packet (ISO/IEC 13818-1, 2.4.4). So a stream can change tables at the start of any
// section.
[[nodiscard]] std::string packetize_sections(const dvbpsi_psi_section_t* first_section,
                                             std::uint16_t pid);

#endif
