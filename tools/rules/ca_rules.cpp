#include <cstdint>
#include <map>
#include <set>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/rules/rules.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void check_ca_on_reserved_pid(const TableIndex& tables, const RuleReport& report) {
    for (const CaDescriptor& ca : tables.ca_descriptors()) {
        const std::string use = reserved_use(ca.pid);
        if (use.empty()) continue;
        report(ca.place, "PID {} is reserved for {}: receivers get no {} there",
               pid_text(ca.pid), use, ca.messages());
    }
}

void check_emm_on_pmt_pid(const TableIndex& tables, const RuleReport& report) {
    std::map<std::int32_t, std::int32_t> services;  // by the PID of their PMT
    for (const PmtOnPid& pmt : tables.tables().pmts)
        services.emplace(pmt.pid, pmt.pmt.program_number);
    for (const auto& [place, program] : tables.all<PATProgram>()) {
        if (program.program_number != 0)
            services.emplace(program.pid, program.program_number);
    }
    for (const CaDescriptor& ca : tables.ca_descriptors()) {
        const auto pmt = services.find(ca.pid);
        // pmt_on_stream_pid reports a PID of ECMs.
        if (!ca.is_in_cat() || pmt == services.end()) continue;
        report(ca.place,
               "PID {} carries the PMT of {} too: receivers cannot tell the packets "
               "apart and lose the {} or the PMT",
               pid_text(ca.pid), service_text(pmt->second), ca.messages());
    }
}

void check_ca_on_stream_pid(const TableIndex& tables, const RuleReport& report) {
    std::map<std::int32_t, std::int32_t> services;  // by the PIDs of their streams
    for (const auto& [place, stream] : tables.all<PMTStream>())
        services.emplace(stream.elementary_pid, tables.service_of(place));
    for (const CaDescriptor& ca : tables.ca_descriptors()) {
        const auto stream = services.find(ca.pid);
        // ca_on_reserved_pid reports the null packets' PID.
        if (stream == services.end() || ca.pid == kNullPid) continue;
        report(ca.place,
               "PID {} carries a stream of {} too: receivers cannot tell the {} from the "
               "stream and lose both",
               pid_text(ca.pid), service_text(stream->second), ca.messages());
    }
}

void check_ca_system_not_in_cat(const TableIndex& tables, const RuleReport& report) {
    std::set<std::uint16_t> systems;
    for (const CaDescriptor& ca : tables.ca_descriptors()) {
        if (ca.is_in_cat()) systems.insert(ca.system_id);  // before those of the PMTs
        if (systems.count(ca.system_id) != 0) continue;
        report(ca.place, "{} for CA system {}: receivers get no entitlements for it",
               tables.tables().cat ? "the CAT has no entry" : "there is no CAT",
               hex_number(ca.system_id, 4));
    }
}

void check_free_ca_mode_differs(const TableIndex& tables, const RuleReport& report) {
    std::set<std::size_t> scrambled;  // PMTs
    for (const auto& [place, descriptor] : tables.all<Descriptor>()) {
        if (place.table.kind == TableKind::kPmt && descriptor.tag == kCaTag)
            scrambled.insert(place.table.pmt);
    }
    for (const auto& [place, service] : tables.all<SDTService>()) {
        const auto pmt = tables.pmt_of(service.service_id);
        if (!pmt) continue;
        const bool has_ca = scrambled.count(*pmt) != 0;
        if (has_ca == service.free_ca_mode) continue;
        report(place.at("free_ca_mode"),
               has_ca ? "free_CA_mode is false, but the PMT of {} has CA descriptors: "
                        "receivers list it as free"
                      : "free_CA_mode is true, but the PMT of {} has no CA descriptor: "
                        "receivers list it as scrambled",
               service_text(service.service_id));
    }
}

}  // namespace

std::vector<Rule> ca_rules() {
    return {
        {"ca_on_reserved_pid", Severity::kError,
         "ISO/IEC 13818-1, table 2-3; ETSI EN 300 468, table 1",
         check_ca_on_reserved_pid},
        {"emm_on_pmt_pid", Severity::kError, "ISO/IEC 13818-1, 2.4.4",
         check_emm_on_pmt_pid},
        {"ca_on_stream_pid", Severity::kError, "ISO/IEC 13818-1, 2.6.16",
         check_ca_on_stream_pid},
        {"ca_system_not_in_cat", Severity::kWarning, "ISO/IEC 13818-1, 2.6.16",
         check_ca_system_not_in_cat},
        {"free_ca_mode_differs", Severity::kWarning, "ETSI EN 300 468, 5.2.3",
         check_free_ca_mode_differs},
    };
}
