#include <nlohmann/json.hpp>

#include "dvb/nanoseconds.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

using nlohmann::ordered_json;

// Returns null if the spread is empty.
ordered_json spread_json(const Spread& spread, double unit) {
    if (spread.count == 0) return nullptr;
    return {{"min", static_cast<double>(spread.least) / unit},
            {"mean", spread.mean() / unit},
            {"max", static_cast<double>(spread.greatest) / unit}};
}

ordered_json table_json(const Report& report, const TableKey& key,
                        const TableRecord& table) {
    ordered_json json;
    json["table"] = table_info(key.kind).name;
    if (key.kind == TableKind::kPmt) {
        json["service_id"] = key.service_id;
        json["in_pat"] = table.is_announced();
        if (const auto* const name = report.service_name(key))
            json["service_name"] = *name;
    }
    json["sections"] = table.sections();
    if (table.version()) json["version"] = *table.version();
    if (table.utc()) json["utc"] = utc_date_and_time(*table.utc());
    json["unversioned_changes"] =
        report.stream.faults().count(table.fault(FaultKind::kVersion));
    json["repetition_ms"] = spread_json(table.repetition().intervals(), kNsPerMs);
    json["longest_ms"] = to_ms(table.repetition().longest());
    if (const auto limit = table_info(key.kind).repetition_limit_ns)
        json["limit_ms"] = to_ms(*limit);
    json["jitter_ms"] = spread_json(table.repetition().jitter(), kNsPerMs);
    return json;
}

ordered_json pid_json(const Report& report, const PidRecord& pid) {
    const auto count = [&](FaultKind kind) {
        return report.stream.faults().count(pid.fault(kind));
    };
    ordered_json json{{"pid", pid.number},
                      {"packets", pid.packets},
                      {"bit_rate", report.rates.pids.at(pid.number)},
                      {"continuity_errors", count(FaultKind::kContinuity)},
                      {"crc_errors", count(FaultKind::kCrc)},
                      {"wrong_table_ids", count(FaultKind::kTableId)},
                      {"transport_errors", count(FaultKind::kTransportError)},
                      {"scrambled_packets", count(FaultKind::kScrambled)}};
    json["tables"] = ordered_json::array();
    for (const auto& [key, table] : pid.tables)
        json["tables"].push_back(table_json(report, key, table));
    return json;
}

ordered_json fault_json(const Fault& fault, const FaultLog::Record& record,
                        bool is_accepted) {
    ordered_json json{{"check", check_name(fault.kind)},
                      {"text", describe(fault, record.worst)}};
    if (!fault.rule.empty()) json["rule"] = fault.rule;
    if (!clause(fault).empty()) json["clause"] = clause(fault);
    if (fault.pid) json["pid"] = *fault.pid;
    json["count"] = record.count;
    json["first"] = date_and_time(record.first);
    json["last"] = date_and_time(record.last);
    json["accepted"] = is_accepted;
    return json;
}

}  // namespace

std::string json_report(const Report& report) {
    const StreamStatistics& stream = report.stream;
    const FaultLog& faults = stream.faults();
    ordered_json json{
        {"address", report.address},
        {"duration_s", to_seconds(stream.duration())},
        {"datagrams", stream.datagrams()},
        {"malformed_datagrams", faults.count({FaultKind::kMalformed})},
        {"lost_datagrams", stream.lost_datagrams()},
        {"packets", stream.packets()},
        {"packets_per_datagram", spread_json(stream.packets_per_datagram(), 1)},
        {"rtp", stream.is_rtp()},
        {"bit_rate", report.rates.stream},
        {"peak_bit_rate", stream.peak_bit_rate()},
        {"peak_window_ms", to_ms(kPeakWindowNs)}};
    if (const auto differences = stream.expected_differences())
        json["expected_differences"] = *differences;
    json["pids"] = ordered_json::array();
    for (const auto& [number, pid] : stream.pids()) {
        if (pid.packets > 0 || !pid.tables.empty())
            json["pids"].push_back(pid_json(report, pid));
    }
    json["outside_limits"] = ordered_json::array();
    for (const auto& [fault, record] : faults.records())
        json["outside_limits"].push_back(
            fault_json(fault, record, faults.is_accepted(fault)));
    return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}
