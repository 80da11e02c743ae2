#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/rules/ca_descriptor.h"
#include "tools/rules/rule.h"

using namespace orvel::thrift::dvb_tables;

namespace {

// Calls `visit` for each CA descriptor of the CAT, which names an EMM PID, and of the
// PMTs, which name ECM PIDs. `what` is "EMMs" or "ECMs".
void for_each_ca_pid(
    const TableIndex& tables,
    const std::function<void(TablePlace, const std::string& field, std::int32_t pid,
                             const std::string& what)>& visit) {
    tables.for_each_descriptor(
        [&](TablePlace place, const std::string& field, const Descriptor& descriptor) {
            const auto ca = ca_descriptor(descriptor);
            if (!ca || place.kind == TableKind::kSdt) return;
            visit(place, field, ca->pid, place.kind == TableKind::kCat ? "EMMs" : "ECMs");
        });
}

void check_ca_on_reserved_pid(const TableIndex& tables, RuleReport& report) {
    for_each_ca_pid(tables, [&](TablePlace place, const std::string& field,
                                std::int32_t pid, const std::string& what) {
        const std::string use = reserved_use(pid);
        if (use.empty()) return;
        report.add(place, field,
                   "PID " + pid_text(pid) + " is reserved for " + use +
                       ": receivers get no " + what + " there");
    });
}

void check_emm_on_pmt_pid(const TableIndex& tables, RuleReport& report) {
    std::map<std::int32_t, std::int32_t> services;  // by the PID of their PMT
    for (const PmtOnPid& pmt : tables.tables().pmts)
        services.emplace(pmt.pid, pmt.pmt.program_number);
    tables.for_each_program([&](std::size_t, const PATProgram& program) {
        if (program.program_number != 0)
            services.emplace(program.pid, program.program_number);
    });
    for_each_ca_pid(tables, [&](TablePlace place, const std::string& field,
                                std::int32_t pid, const std::string& what) {
        const auto pmt = services.find(pid);
        // pmt_on_stream_pid reports a PID of ECMs.
        if (place.kind != TableKind::kCat || pmt == services.end()) return;
        report.add(place, field,
                   "PID " + pid_text(pid) + " carries the PMT of " +
                       service_text(pmt->second) +
                       " too: receivers cannot tell the packets apart and lose the " +
                       what + " or the PMT");
    });
}

void check_ca_on_stream_pid(const TableIndex& tables, RuleReport& report) {
    std::map<std::int32_t, std::int32_t> services;  // by the PIDs of their streams
    tables.for_each_stream(
        [&](TablePlace, const PMT& pmt, std::size_t, const PMTStream& stream) {
            services.emplace(stream.elementary_pid, pmt.program_number);
        });
    for_each_ca_pid(tables, [&](TablePlace place, const std::string& field,
                                std::int32_t pid, const std::string& what) {
        const auto stream = services.find(pid);
        // ca_on_reserved_pid reports the null packets' PID.
        if (stream == services.end() || pid == kNullPid) return;
        report.add(place, field,
                   "PID " + pid_text(pid) + " carries a stream of " +
                       service_text(stream->second) + " too: receivers cannot tell the " +
                       what + " from the stream and lose both");
    });
}

void check_ca_system_not_in_cat(const TableIndex& tables, RuleReport& report) {
    std::set<std::uint16_t> systems;
    tables.for_each_descriptor(
        [&](TablePlace place, const std::string& field, const Descriptor& descriptor) {
            const auto ca = ca_descriptor(descriptor);
            if (ca && place.kind == TableKind::kCat) systems.insert(ca->system_id);
            const bool is_in_pmt = place.kind == TableKind::kPmt;  // after the CAT
            if (!ca || !is_in_pmt || systems.count(ca->system_id) != 0) return;
            report.add(place, field,
                       (tables.tables().cat ? "the CAT has no entry for CA system "
                                            : "there is no CAT for CA system ") +
                           hex_number(ca->system_id, 4) +
                           ": receivers get no entitlements for it");
        });
}

void check_free_ca_mode_differs(const TableIndex& tables, RuleReport& report) {
    tables.for_each_service([&](std::size_t i, const SDTService& service) {
        const auto pmt = tables.pmt_of(service.service_id);
        if (!pmt) return;
        bool has_ca = false;
        tables.for_each_descriptor_of_pmt(
            *pmt, [&](TablePlace, const std::string&, const Descriptor& descriptor) {
                if (descriptor.tag == kCaTag) has_ca = true;
            });
        if (has_ca == service.free_ca_mode) return;
        report.add(kInSdt, element("services", i) + ".free_ca_mode",
                   has_ca ? "free_CA_mode is false, but the PMT of " +
                                service_text(service.service_id) +
                                " has CA descriptors: receivers list it as free"
                          : "free_CA_mode is true, but the PMT of " +
                                service_text(service.service_id) +
                                " has no CA descriptor: receivers list it as scrambled");
    });
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
