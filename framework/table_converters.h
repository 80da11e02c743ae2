#ifndef KESTAN_FRAMEWORK_TABLE_CONVERTERS_H
#define KESTAN_FRAMEWORK_TABLE_CONVERTERS_H

#include "dvb/libdvbpsi.h"
#include "thrift/dvb_tables_types.h"

// From the tables of the control service to those of libdvbpsi.
//
// Each converter maps every field and returns a new table that belongs to the caller, to
// be released with libdvbpsi's delete function; or null for a table that cannot be
// carried whole: a value outside its field's width (version_number: 0 to 255), a
// descriptor of more than 255 bytes, a PAT program on PID 0, and what section_limits.h
// does not allow. Memory exhaustion raises std::bad_alloc. Nothing is leaked on any of
// these ways.
namespace orvel::thrift::dvb_tables {

[[nodiscard]] dvbpsi_pat_t* t2dPAT(const PAT& pat);
[[nodiscard]] dvbpsi_cat_t* t2dCAT(const CAT& cat);
[[nodiscard]] dvbpsi_sdt_t* t2dSDT(const SDT& sdt);  // table_id 0x42, the actual stream's
[[nodiscard]] dvbpsi_pmt_t* t2dPMT(const PMT& pmt);

}  // namespace orvel::thrift::dvb_tables

#endif
