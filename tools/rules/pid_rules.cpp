#include <algorithm>
#include <map>
#include <utility>

#include "dvb/psi_si.h"
#include "tools/json/number_text.h"
#include "tools/rules/rules.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void report_reserved_pid(const FieldPlace& of, std::int32_t pid,
                         const RuleReport& report) {
    const std::string use = reserved_use(pid);
    if (use.empty()) return;
    report(of.at("pid"), "PID {} is reserved for {}: receivers {}", pid_text(pid), use,
           pid == kNullPid
               ? "discard the PMT"
               : "find no PMT there, and take its sections for broken ones of that kind");
}

void check_pmt_on_reserved_pid(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, program] : tables.all<PATProgram>()) {
        if (program.program_number != 0) report_reserved_pid(place, program.pid, report);
    }
    for (const auto& [place, pmt] : tables.all<PmtOnPid>())
        report_reserved_pid(place, pmt.pid, report);
}

void check_pmt_on_stream_pid(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, pmt] : tables.all<PmtOnPid>()) {
        const std::string stream = tables.stream_on(pmt.pid);
        if (stream.empty()) continue;
        report(place.at("pid"),
               "PID {} carries {} too: receivers cannot tell the packets apart and lose "
               "both",
               pid_text(pmt.pid), stream);
    }
}

void check_pmt_not_where_announced(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, pmt] : tables.all<PmtOnPid>()) {
        const std::int32_t service = pmt.pmt.program_number;
        const auto announced = tables.announced_pid(service);
        if (!announced || *announced == pmt.pid) continue;
        report(place.at("pid"),
               "this PMT is on PID {}, but the PAT announces {} on PID {}: receivers "
               "wait there for a PMT that never comes",
               pid_text(pmt.pid), service_text(service), pid_text(*announced));
    }
}

void check_stream_on_reserved_pid(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, stream] : tables.all<PMTStream>()) {
        const std::int32_t pid = stream.elementary_pid;
        const std::string use = reserved_use(pid);
        // PMTs name the null packets' PID for a stream that is off air.
        if (use.empty() || pid == kNullPid) continue;
        report(
            place.at("elementary_pid"),
            "PID {} is reserved for {}: receivers take the stream's packets for sections",
            pid_text(pid), use);
    }
}

void check_elementary_pid_twice(const TableIndex& tables, const RuleReport& report) {
    std::map<std::pair<std::size_t, std::int32_t>, FieldPlace> first_with;
    for (const auto& [place, stream] : tables.all<PMTStream>()) {
        const std::int32_t pid = stream.elementary_pid;
        const auto [first, is_new] =
            first_with.emplace(std::pair(place.table.pmt, pid), place);
        if (is_new) continue;
        report(place.at("elementary_pid"),
               "{} of this PMT is on PID {} too: receivers give both streams the same "
               "packets",
               first->second.field, pid_text(pid));
    }
}

void check_pcr_pid_without_stream(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, on_pid] : tables.all<PmtOnPid>()) {
        const PMT& pmt = on_pid.pmt;
        const bool has_stream = std::any_of(
            pmt.streams.begin(), pmt.streams.end(), [&](const PMTStream& stream) {
                return stream.elementary_pid == pmt.pcr_pid;
            });
        if (has_stream || pmt.pcr_pid == kNoPcrPid) continue;
        report(place.at("pcr_pid"),
               "no stream of this PMT is on PID {}: receivers get no clock and show "
               "nothing, unless the PCR has a PID for itself",
               pid_text(pmt.pcr_pid));
    }
}

void check_stream_type_differs(const TableIndex& tables, const RuleReport& report) {
    std::map<std::int32_t, std::pair<std::int32_t, std::int32_t>> first_with;  // by PID
    for (const auto& [place, stream] : tables.all<PMTStream>()) {
        const std::int32_t of = tables.service_of(place);
        const auto [first, is_new] =
            first_with.emplace(stream.elementary_pid, std::pair(stream.stream_type, of));
        const auto [type, service] = first->second;
        // elementary_pid_twice reports a PID that one PMT has twice.
        if (is_new || type == stream.stream_type || service == of) continue;
        report(place.at("stream_type"),
               "{} has the stream on PID {} as type {}, this PMT as type {}: receivers "
               "fail to decode it in one of the services",
               service_text(service), pid_text(stream.elementary_pid),
               hex_number(type, 2), hex_number(stream.stream_type, 2));
    }
}

void check_network_pid_differs(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, program] : tables.all<PATProgram>()) {
        if (program.program_number != 0 || program.pid == kNitPid) continue;
        report(place.at("pid"),
               "the network PID is {}, and DVB gives PID 0x0010 to the NIT: receivers "
               "look for it in one of two places",
               pid_text(program.pid));
    }
}

void check_network_pid_missing(const TableIndex& tables, const RuleReport& report) {
    if (!tables.tables().pat || !tables.tables().sdt || tables.announced_pid(0)) return;
    report({kInPat, "programs"},
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
