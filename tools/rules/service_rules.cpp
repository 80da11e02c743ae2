#include <cstdint>
#include <set>

#include "tools/json/descriptor_fields.h"
#include "tools/json/number_text.h"
#include "tools/rules/rule_functions.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::int32_t kServiceDescriptorTag = 0x48;

// Returns true for a name that overruns its descriptor: another rule reports that.
bool has_service_name(const Descriptor& descriptor) {
    if (descriptor.tag != kServiceDescriptorTag) return false;
    const SplitDescriptor split =
        split_descriptor(*form_of_tag(kServiceDescriptorTag), descriptor.data);
    return !split.overrun.empty() || !split.entries[0].back().bytes.empty();
}

}  // namespace

void check_service_with_two_pmts(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        const std::int32_t service = multiplex.pmts[i].pmt.program_number;
        const std::size_t first = *tables.pmt_of(service);
        if (first == i) continue;
        report.add(in_pmt(i), "program_number",
                   service_text(service) + " has another PMT, on PID " +
                       pid_text(multiplex.pmts[first].pid) +
                       ": receivers tune to the streams of one or of the other");
    }
}

void check_program_twice_in_pat(const TableIndex& tables, RuleReport& report) {
    if (!tables.tables().pat) return;
    const std::vector<PATProgram>& programs = tables.tables().pat->programs;
    std::set<std::int32_t> seen;
    for (std::size_t i = 0; i < programs.size(); ++i) {
        const std::int32_t number = programs[i].program_number;
        if (seen.insert(number).second) continue;
        report.add(kInPat, element("programs", i) + ".program_number",
                   (number == 0 ? std::string("the network PID") : service_text(number)) +
                       " is in the PAT twice, first on PID " +
                       pid_text(*tables.announced_pid(number)) +
                       ": receivers follow one entry or the other");
    }
}

void check_service_twice_in_sdt(const TableIndex& tables, RuleReport& report) {
    if (!tables.tables().sdt) return;
    const std::vector<SDTService>& services = tables.tables().sdt->services;
    std::set<std::int32_t> seen;
    for (std::size_t i = 0; i < services.size(); ++i) {
        if (seen.insert(services[i].service_id).second) continue;
        report.add(kInSdt, element("services", i) + ".service_id",
                   service_text(services[i].service_id) +
                       " is in the SDT twice: receivers show the name of one entry or of "
                       "the other");
    }
}

void check_pmt_of_program_0(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        if (multiplex.pmts[i].pmt.program_number != 0) continue;
        report.add(in_pmt(i), "program_number",
                   "program_number 0 stands for the network PID in the PAT, not for a "
                   "service: receivers ignore this PMT");
    }
}

void check_pat_missing(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (multiplex.pat || (multiplex.pmts.empty() && !multiplex.sdt)) return;
    report.add(kInPat, "", "there is no PAT: receivers find no service without one");
}

void check_service_without_pmt(const TableIndex& tables, RuleReport& report) {
    if (!tables.tables().pat) return;
    const std::vector<PATProgram>& programs = tables.tables().pat->programs;
    for (std::size_t i = 0; i < programs.size(); ++i) {
        const std::int32_t service = programs[i].program_number;
        if (service == 0 || tables.pmt_of(service)) continue;
        report.add(kInPat, element("programs", i),
                   service_text(service) +
                       " has no PMT: receivers list the service and cannot show it");
    }
}

void check_pmt_not_in_pat(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.pat) return;
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        const std::int32_t service = multiplex.pmts[i].pmt.program_number;
        if (service == 0 || tables.announced_pid(service)) continue;
        report.add(in_pmt(i), "program_number",
                   "the PAT does not have " + service_text(service) +
                       ": receivers do not find this PMT");
    }
}

void check_sdt_service_not_in_pat(const TableIndex& tables, RuleReport& report) {
    const Multiplex& multiplex = tables.tables();
    if (!multiplex.pat || !multiplex.sdt) return;
    for (std::size_t i = 0; i < multiplex.sdt->services.size(); ++i) {
        const std::int32_t service = multiplex.sdt->services[i].service_id;
        if (tables.announced_pid(service)) continue;
        report.add(kInSdt, element("services", i) + ".service_id",
                   "the PAT does not have " + service_text(service) +
                       ": receivers list the service and cannot tune to it");
    }
}

void check_service_without_name(const TableIndex& tables, RuleReport& report) {
    if (!tables.tables().sdt) return;
    const std::vector<SDTService>& services = tables.tables().sdt->services;
    for (std::size_t i = 0; i < services.size(); ++i) {
        bool has_descriptor = false;
        bool has_name = false;
        for (const Descriptor& descriptor : services[i].descriptors) {
            if (descriptor.tag == kServiceDescriptorTag) has_descriptor = true;
            if (has_service_name(descriptor)) has_name = true;
        }
        if (has_name) continue;
        report.add(
            kInSdt, element("services", i),
            service_text(services[i].service_id) +
                (has_descriptor ? " has an empty name" : " has no service descriptor") +
                ": receivers list it without a name, or not at all");
    }
}
