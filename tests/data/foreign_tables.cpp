// What only the layers behind start-up call of a device framework, in an archive that the
// linker would skip if it came before them. The converters refuse every table.

#include "framework/clock.h"
#include "framework/network.h"
#include "framework/table_converters.h"
#include "thrift/general_constants.h"

int IsSystemTimeSet() {
    return 0;
}
std::int64_t GetUTCTime() {
    return 0xC079124500;
}

int orvel::network::NICIP_VLAN_Int_getFPGA_IPAddress(std::string& address) {
    address = "127.0.0.1";
    return 0;
}

namespace orvel::thrift::general {
const generalConstants g_general_constants;
generalConstants::generalConstants() : PSI_SI_OUTPUT_BASE_PORT(6000) {}
}  // namespace orvel::thrift::general

namespace orvel::thrift::dvb_tables {
dvbpsi_pat_t* t2dPAT(const PAT& /*pat*/) {
    return nullptr;
}
dvbpsi_cat_t* t2dCAT(const CAT& /*cat*/) {
    return nullptr;
}
dvbpsi_sdt_t* t2dSDT(const SDT& /*sdt*/) {
    return nullptr;
}
dvbpsi_pmt_t* t2dPMT(const PMT& /*pmt*/) {
    return nullptr;
}
}  // namespace orvel::thrift::dvb_tables
