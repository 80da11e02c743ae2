#include "tests/support/packets_of.h"

#include "dvb/psi_si.h"
#include "framework/table_converters.h"
#include "tables/table_packets.h"
#include "tools/receive/table_collector.h"

using namespace orvel::thrift::dvb_tables;

namespace {

template <typename TablePtr>
std::string packets(const TablePtr& table, std::uint16_t pid) {
    return table ? table_packets(*table, pid) : "";
}

}  // namespace

std::string packets_of(const PAT& pat) {
    return packets(PatPtr(t2dPAT(pat)), kPatPid);
}
std::string packets_of(const CAT& cat) {
    return packets(CatPtr(t2dCAT(cat)), kCatPid);
}
std::string packets_of(const SDT& sdt) {
    return packets(SdtPtr(t2dSDT(sdt)), kSdtPid);
}
std::string packets_of(const PMT& pmt) {
    return packets(PmtPtr(t2dPMT(pmt)), kPmtPid);
}

Multiplex received(const std::string& packets) {
    TableCollector collector;
    push_packets(packets, collector);
    return collector.tables();
}
