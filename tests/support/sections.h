#ifndef KESTAN_TESTS_SUPPORT_SECTIONS_H
#define KESTAN_TESTS_SUPPORT_SECTIONS_H

#include <string>
#include <vector>

#include "thrift/dvb_tables_types.h"

// The sections of a table, CRC_32 included, written from the standards' syntax without
// libdvbpsi: what a receiver must get. REQUIRES: all fields are in range.
using Sections = std::vector<std::string>;

[[nodiscard]] Sections sections_of(const orvel::thrift::dvb_tables::PAT& pat);
[[nodiscard]] Sections sections_of(const orvel::thrift::dvb_tables::CAT& cat);
[[nodiscard]] Sections sections_of(const orvel::thrift::dvb_tables::SDT& sdt);
[[nodiscard]] Sections sections_of(const orvel::thrift::dvb_tables::PMT& pmt);

// Completes any section: sets its section_length and, if it is a long one, appends its
// CRC_32.
[[nodiscard]] std::string sealed(std::string section);

#endif
