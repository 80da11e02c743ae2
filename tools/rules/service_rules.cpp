#include <cstdint>
#include <set>

#include "dvb/psi_si.h"
#include "tools/json/descriptor_fields.h"
#include "tools/json/number_text.h"
#include "tools/rules/rules.h"

using namespace orvel::thrift::dvb_tables;

namespace {

void check_service_with_two_pmts(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, pmt] : tables.all<PmtOnPid>()) {
        const std::int32_t service = pmt.pmt.program_number;
        const std::size_t first = *tables.pmt_of(service);
        if (first == place.table.pmt) continue;
        report(place.at("program_number"),
               "{} has another PMT, on PID {}: receivers tune to the streams of one or "
               "of the other",
               service_text(service), pid_text(tables.tables().pmts[first].pid));
    }
}

void check_program_twice_in_pat(const TableIndex& tables, const RuleReport& report) {
    std::set<std::int32_t> seen;
    for (const auto& [place, program] : tables.all<PATProgram>()) {
        const std::int32_t number = program.program_number;
        if (seen.insert(number).second) continue;
        report(place.at("program_number"),
               "{} is in the PAT twice, first on PID {}: receivers follow one entry or "
               "the other",
               number == 0 ? "the network PID" : service_text(number),
               pid_text(*tables.announced_pid(number)));
    }
}

void check_service_twice_in_sdt(const TableIndex& tables, const RuleReport& report) {
    std::set<std::int32_t> seen;
    for (const auto& [place, service] : tables.all<SDTService>()) {
        if (seen.insert(service.service_id).second) continue;
        report(place.at("service_id"),
               "{} is in the SDT twice: receivers show the name of one entry or of the "
               "other",
               service_text(service.service_id));
    }
}

void check_pmt_of_program_0(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, pmt] : tables.all<PmtOnPid>()) {
        if (pmt.pmt.program_number != 0) continue;
        report(place.at("program_number"),
               "program_number 0 stands for the network PID in the PAT, not for a "
               "service: receivers ignore this PMT");
    }
}

void check_pat_missing(const TableIndex& tables, const RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (multiplex.pat || (multiplex.pmts.empty() && !multiplex.sdt)) return;
    report({kInPat, ""}, "there is no PAT: receivers find no service without one");
}

void check_service_without_pmt(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, program] : tables.all<PATProgram>()) {
        const std::int32_t service = program.program_number;
        if (service == 0 || tables.pmt_of(service)) continue;
        report(place, "{} has no PMT: receivers list the service and cannot show it",
               service_text(service));
    }
}

void check_pmt_not_in_pat(const TableIndex& tables, const RuleReport& report) {
    if (!tables.tables().pat) return;
    for (const auto& [place, pmt] : tables.all<PmtOnPid>()) {
        const std::int32_t service = pmt.pmt.program_number;
        if (service == 0 || tables.announced_pid(service)) continue;
        report(place.at("program_number"),
               "the PAT does not have {}: receivers do not find this PMT",
               service_text(service));
    }
}

void check_sdt_service_not_in_pat(const TableIndex& tables, const RuleReport& report) {
    if (!tables.tables().pat) return;
    for (const auto& [place, service] : tables.all<SDTService>()) {
        if (tables.announced_pid(service.service_id)) continue;
        report(
            place.at("service_id"),
            "the PAT does not have {}: receivers list the service and cannot tune to it",
            service_text(service.service_id));
    }
}

void check_service_without_name(const TableIndex& tables, const RuleReport& report) {
    for (const auto& [place, service] : tables.all<SDTService>()) {
        bool has_descriptor = false;
        bool is_named_or_broken = false;  // another rule reports a broken descriptor
        for (const Descriptor& descriptor : service.descriptors) {
            if (descriptor.tag != kServiceTag) continue;
            has_descriptor = true;
            if (service_name_field(descriptor) != "") is_named_or_broken = true;
        }
        if (is_named_or_broken) continue;
        report(place, "{} has {}: receivers list it without a name, or not at all",
               service_text(service.service_id),
               has_descriptor ? "an empty name" : "no service descriptor");
    }
}

}  // namespace

std::vector<Rule> service_rules() {
    return {
        {"service_with_two_pmts", Severity::kError, "ISO/IEC 13818-1, 2.4.4.8",
         check_service_with_two_pmts},
        {"program_twice_in_pat", Severity::kError, "ISO/IEC 13818-1, 2.4.4.5",
         check_program_twice_in_pat},
        {"service_twice_in_sdt", Severity::kError, "ETSI EN 300 468, 5.2.3",
         check_service_twice_in_sdt},
        {"pmt_of_program_0", Severity::kError, "ISO/IEC 13818-1, 2.4.4.5",
         check_pmt_of_program_0},
        {"pat_missing", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4", check_pat_missing},
        {"service_without_pmt", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_service_without_pmt},
        {"pmt_not_in_pat", Severity::kWarning, "ISO/IEC 13818-1, 2.4.4.5",
         check_pmt_not_in_pat},
        {"sdt_service_not_in_pat", Severity::kWarning, "ETSI EN 300 468, 5.2.3",
         check_sdt_service_not_in_pat},
        {"service_without_name", Severity::kWarning, "ETSI TS 101 211, 4.2",
         check_service_without_name},
    };
}
