#include "tools/kestan-monitor/measure/consistency_check.h"

#include <utility>

#include "tools/rules/rules.h"

namespace {

// Limits memory: a stream can break a rule in very many places.
constexpr std::size_t kMaxContradictions = 1000;

Fault fault_of(const Finding& finding, const Multiplex& tables) {
    const TableKind kind = finding.table.kind;
    Fault fault{FaultKind::kConsistency, table_info(kind).pid,
                TableKey{kind},          finding.rule,
                finding.clause,          finding.text};
    if (kind != TableKind::kPmt) return fault;
    const PmtOnPid& pmt = tables.pmts.at(finding.table.pmt);
    fault.pid = pmt.pid;
    fault.table->service_id = static_cast<std::uint16_t>(pmt.pmt.program_number);
    return fault;
}

// Returns the PCR PID if the finding is that no stream of the PMT has it.
std::optional<std::uint16_t> pcr_pid_of(const Finding& finding, const Multiplex& tables) {
    if (finding.rule != "pcr_pid_without_stream") return std::nullopt;
    return static_cast<std::uint16_t>(tables.pmts.at(finding.table.pmt).pmt.pcr_pid);
}

}  // namespace

void ConsistencyCheck::replace(const Multiplex& tables, std::int64_t now) {
    std::map<Fault, Contradiction> found;
    for (const Finding& finding : check_tables(tables)) {
        if (finding.severity == Severity::kInformation) continue;
        if (found.size() == kMaxContradictions) break;
        Fault fault = fault_of(finding, tables);
        const auto before = contradictions_.find(fault);
        found.emplace(std::move(fault),
                      before == contradictions_.end()
                          ? Contradiction{now, pcr_pid_of(finding, tables)}
                          : before->second);
    }
    contradictions_.swap(found);
}

void ConsistencyCheck::advance(std::int64_t now, const PidRecords& pids) {
    for (auto& [fault, contradiction] : contradictions_) {
        if (now - contradiction.since <= *table_info(TableKind::kSdt).repetition_limit_ns)
            continue;
        const auto& pcr_pid = contradiction.pcr_pid;
        const auto pid = pcr_pid ? pids.find(*pcr_pid) : pids.end();
        if (pid != pids.end() && pid->second.last_pcr >= contradiction.since) continue;
        if (!std::exchange(contradiction.is_logged, true))
            faults_.add(fault, contradiction.since);
    }
}
