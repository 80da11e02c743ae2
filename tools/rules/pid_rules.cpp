#include <algorithm>
#include <map>
#include <utility>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/rules/rule.h"

using namespace orvel::thrift::dvb_tables;

namespace {

std::string reserved_text(std::int32_t pid, const std::string& use) {
    return "PID " + pid_text(pid) + " is reserved for " + use +
           (pid == kNullPid ? ": receivers discard the PMT"
                            : ": receivers find no PMT there, and take its sections for "
                              "broken ones of that kind");
}

void check_pmt_on_reserved_pid(const TableIndex& tables, RuleReport& report) {
    tables.for_each_program([&](std::size_t i, const PATProgram& program) {
        const std::string use = reserved_use(program.pid);
        if (program.program_number == 0 || use.empty()) return;
        report.add(kInPat, element("programs", i) + ".pid",
                   reserved_text(program.pid, use));
    });
    tables.for_each_pmt([&](TablePlace place, const PmtOnPid& pmt) {
        const std::string use = reserved_use(pmt.pid);
        if (!use.empty()) report.add(place, "pid", reserved_text(pmt.pid, use));
    });
}

void check_pmt_on_stream_pid(const TableIndex& tables, RuleReport& report) {
    tables.for_each_pmt([&](TablePlace place, const PmtOnPid& pmt) {
        const std::string& stream = tables.stream_on(pmt.pid);
        if (stream.empty()) return;
        report.add(place, "pid",
                   "PID " + pid_text(pmt.pid) + " carries " + stream +
                       " too: receivers cannot tell the packets apart and lose both");
    });
}

void check_pmt_not_where_announced(const TableIndex& tables, RuleReport& report) {
    tables.for_each_pmt([&](TablePlace place, const PmtOnPid& pmt) {
        const std::int32_t service = pmt.pmt.program_number;
        const auto announced = tables.announced_pid(service);
        if (!announced || *announced == pmt.pid) return;
        report.add(place, "pid",
                   "this PMT is on PID " + pid_text(pmt.pid) +
                       ", but the PAT announces " + service_text(service) + " on PID " +
                       pid_text(*announced) +
                       ": receivers wait there for a PMT that never comes");
    });
}

void check_stream_on_reserved_pid(const TableIndex& tables, RuleReport& report) {
    tables.for_each_stream([&](TablePlace place, const PMT& /*pmt*/, std::size_t i,
                               const PMTStream& stream) {
        const std::int32_t pid = stream.elementary_pid;
        // PMTs name the null packets' PID for a stream that is off air.
        if (pid == kNullPid) return;
        const std::string use = reserved_use(pid);
        if (use.empty()) return;
        report.add(place, element("streams", i) + ".elementary_pid",
                   "PID " + pid_text(pid) + " is reserved for " + use +
                       ": receivers take the stream's packets for sections");
    });
}

void check_elementary_pid_twice(const TableIndex& tables, RuleReport& report) {
    std::map<std::pair<std::size_t, std::int32_t>, std::size_t> first_with;
    tables.for_each_stream([&](TablePlace place, const PMT& /*pmt*/, std::size_t i,
                               const PMTStream& stream) {
        const std::int32_t pid = stream.elementary_pid;
        const auto [first, is_new] = first_with.emplace(std::pair(place.pmt, pid), i);
        if (is_new) return;
        report.add(place, element("streams", i) + ".elementary_pid",
                   element("streams", first->second) + " of this PMT is on PID " +
                       pid_text(pid) +
                       " too: receivers give both streams the same packets");
    });
}

void check_pcr_pid_without_stream(const TableIndex& tables, RuleReport& report) {
    tables.for_each_pmt([&](TablePlace place, const PmtOnPid& on_pid) {
        const PMT& pmt = on_pid.pmt;
        const bool has_stream = std::any_of(
            pmt.streams.begin(), pmt.streams.end(), [&](const PMTStream& stream) {
                return stream.elementary_pid == pmt.pcr_pid;
            });
        if (has_stream || pmt.pcr_pid == kNoPcrPid) return;
        report.add(place, "pcr_pid",
                   "no stream of this PMT is on PID " + pid_text(pmt.pcr_pid) +
                       ": receivers get no clock and show nothing, unless the PCR has a "
                       "PID for itself");
    });
}

void check_stream_type_differs(const TableIndex& tables, RuleReport& report) {
    std::map<std::int32_t, std::pair<std::int32_t, std::int32_t>> first_with;  // by PID
    tables.for_each_stream(
        [&](TablePlace place, const PMT& pmt, std::size_t i, const PMTStream& stream) {
            const auto [first, is_new] = first_with.emplace(
                stream.elementary_pid, std::pair(stream.stream_type, pmt.program_number));
            const auto [type, service] = first->second;
            // elementary_pid_twice reports a PID that one PMT has twice.
            if (is_new || type == stream.stream_type || service == pmt.program_number)
                return;
            report.add(place, element("streams", i) + ".stream_type",
                       service_text(service) + " has the stream on PID " +
                           pid_text(stream.elementary_pid) + " as type " +
                           hex_number(type, 2) + ", this PMT as type " +
                           hex_number(stream.stream_type, 2) +
                           ": receivers fail to decode it in one of the services");
        });
}

void check_network_pid_differs(const TableIndex& tables, RuleReport& report) {
    tables.for_each_program([&](std::size_t i, const PATProgram& program) {
        if (program.program_number != 0 || program.pid == kNitPid) return;
        report.add(kInPat, element("programs", i) + ".pid",
                   "the network PID is " + pid_text(program.pid) +
                       ", and DVB gives PID 0x0010 to the NIT: receivers look for it in "
                       "one of two places");
    });
}

void check_network_pid_missing(const TableIndex& tables, RuleReport& report) {
    if (!tables.tables().pat || !tables.tables().sdt || tables.announced_pid(0)) return;
    report.add(kInPat, "programs",
               "no program_number 0 announces a network PID: receivers take PID 0x0010, "
               "which DVB gives to the NIT");
}

}  // namespace

std::vector<Rule> pid_rules() {
    return {
        {"pmt_on_reserved_pid", Severity::kError,
         "ISO/IEC 13818-1, table 2-3; ETSI EN 300 468, table 1",
         check_pmt_on_reserved_pid},
        {"pmt_on_stream_pid", Severity::kError, "ISO/IEC 13818-1, 2.4.4",
         check_pmt_on_stream_pid},
        {"pmt_not_where_announced", Severity::kError, "ISO/IEC 13818-1, 2.4.4.5",
         check_pmt_not_where_announced},
        {"stream_on_reserved_pid", Severity::kError,
         "ISO/IEC 13818-1, table 2-3; ETSI EN 300 468, table 1",
         check_stream_on_reserved_pid},
        {"elementary_pid_twice", Severity::kError, "ISO/IEC 13818-1, 2.4.4.9",
         check_elementary_pid_twice},
        {"pcr_pid_without_stream", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.9",
         check_pcr_pid_without_stream},
        {"stream_type_differs", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.9",
         check_stream_type_differs},
        {"network_pid_differs", Severity::kWarning, "ETSI EN 300 468, table 1",
         check_network_pid_differs, RuleScope::kFileTables},
        {"network_pid_missing", Severity::kInformation, "ISO/IEC 13818-1, 2.4.4.5",
         check_network_pid_missing},
    };
}
