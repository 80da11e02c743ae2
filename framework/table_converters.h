#ifndef KESTAN_FRAMEWORK_TABLE_CONVERTERS_H
#define KESTAN_FRAMEWORK_TABLE_CONVERTERS_H

#include "dvb/libdvbpsi.h"
#include "thrift/dvb_tables_types.h"

// Converters from the control service's tables to libdvbpsi's.
//
// Each converter maps every field and returns a new table that the caller owns and
// releases with libdvbpsi's delete function. It returns null for a table that cannot be
// carried whole, and logs the reason at level 4 (the host's implementation:
// thrift/table_refusal.h). Memory exhaustion raises std::bad_alloc. No path leaks.
namespace orvel::thrift::dvb_tables {

[[nodiscard]] dvbpsi_pat_t* t2dPAT(const PAT& pat);
[[nodiscard]] dvbpsi_cat_t* t2dCAT(const CAT& cat);
[[nodiscard]] dvbpsi_sdt_t* t2dSDT(const SDT& sdt);  // table_id 0x42, the actual stream's
[[nodiscard]] dvbpsi_pmt_t* t2dPMT(const PMT& pmt);

}  // namespace orvel::thrift::dvb_tables

// Owners for what the converters return.
using PatPtr = DvbpsiOwner<dvbpsi_pat_t, dvbpsi_pat_delete>;
using CatPtr = DvbpsiOwner<dvbpsi_cat_t, dvbpsi_cat_delete>;
using SdtPtr = DvbpsiOwner<dvbpsi_sdt_t, dvbpsi_sdt_delete>;
using PmtPtr = DvbpsiOwner<dvbpsi_pmt_t, dvbpsi_pmt_delete>;

#endif
