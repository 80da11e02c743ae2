#ifndef KESTAN_TABLES_SDT_SECTIONS_H
#define KESTAN_TABLES_SDT_SECTIONS_H

#include "framework/libdvbpsi.h"

// Makes the sections of an SDT that the converter let pass: every service fits one
// section, and all fit 256. Returns null when libdvbpsi makes none.
//
// libdvbpsi's own generator loses descriptors where a service falls on a section's
// border, and writes past its block when the services alone fill it. So it is called once
// per group of services that fits one section, and the sections are numbered through
// afterwards. A table of one section comes out as the generator makes it. `sdt` is split
// while this runs and whole again when it returns.
[[nodiscard]] SectionsPtr generate_sdt_sections(dvbpsi_t* handle, dvbpsi_sdt_t& sdt);

#endif
