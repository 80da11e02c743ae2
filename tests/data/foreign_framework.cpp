// A device framework as its maker would build it, apart from Kestan's tree: all calls of
// the framework, general constants and converters of its own. It refuses every table.

#include <cstdarg>
#include <cstdio>

#include "framework/clock.h"
#include "framework/log.h"
#include "framework/network.h"
#include "framework/service_state.h"
#include "framework/table_converters.h"
#include "framework/watchdog.h"
#include "thrift/general_constants.h"

void log_setup(int /*level*/, int /*destinations*/) {}

void log_function(int level, int /*code*/, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "foreign %d ", level);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}

int watchdog_register_task() {
    return 1;
}
void watchdog_kick(int /*handle*/) {}
int SignalServiceIsStarted(int /*status*/) {
    return 0;
}
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
