#include "tests/support/packets_of.h"

#include "framework/psi_si.h"
#include "framework/section_limits.h"
#include "framework/table_converters.h"
#include "tables/sdt_sections.h"
#include "tables/section_packetizer.h"
#include "tools/table_collector.h"

using namespace orvel::thrift::dvb_tables;

namespace {

const DvbpsiPtr handle(dvbpsi_new(nullptr, DVBPSI_MSG_NONE));

template <typename TablePtr, typename Generate>
std::string cut(const TablePtr& table, std::uint16_t pid, const Generate& generate) {
    if (!table) return "";
    return packetize_sections(SectionsPtr(generate(handle.get(), table.get())).get(),
                              pid);
}

}  // namespace

std::string packets_of(const PAT& pat) {
    return cut(PatPtr(t2dPAT(pat)), kPatPid, [](auto* to, auto* table) {
        return dvbpsi_pat_sections_generate(to, table, kPatProgramsPerSection);
    });
}

std::string packets_of(const CAT& cat) {
    return cut(CatPtr(t2dCAT(cat)), kCatPid, dvbpsi_cat_sections_generate);
}

std::string packets_of(const SDT& sdt) {
    return cut(SdtPtr(t2dSDT(sdt)), kSdtPid, [](auto* to, auto* table) {
        return generate_sdt_sections(to, *table).release();
    });
}

std::string packets_of(const PMT& pmt) {
    return cut(PmtPtr(t2dPMT(pmt)), kPmtPid, dvbpsi_pmt_sections_generate);
}

Multiplex received(const std::string& packets) {
    TableCollector collector;
    push_packets(packets, collector);
    return collector.tables();
}
