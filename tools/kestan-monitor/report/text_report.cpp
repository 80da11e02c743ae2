#include "tools/kestan-monitor/report/text_report.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

constexpr std::size_t kLeastNameWidth = 24;  // if there is room
constexpr std::size_t kTdtNameWidth = 23;    // with the date

// Returns a text such as "PMT 101 Harbour Television".
std::string name_of(const Report& report, const TableKey& key, const TableRecord& table,
                    std::size_t width) {
    if (key.kind == TableKind::kTdt && table.utc()) {
        const std::string utc = utc_date_and_time(*table.utc());
        const bool has_room = width >= kTdtNameWidth;
        return "TDT " + (has_room ? utc : utc.substr(utc.find(' ') + 1));
    }
    if (key.kind != TableKind::kPmt) return table_name(key);
    const std::string name = fmt::format("PMT {}", key.service_id);
    if (!table.is_announced()) return name + " (not in PAT)";
    const std::string* const service = report.service_name(key);
    return service == nullptr ? name : name + ' ' + *service;
}

std::string pid_columns(const Report& report, const PidRecord& pid) {
    const FaultLog& faults = report.stream.faults();
    const auto rate = report.rates.pids.find(pid.number);
    return fmt::format(
        "{:8}{:8.1f} {:3} {:3}", pid.packets,
        (rate == report.rates.pids.end() ? 0 : rate->second) / kBitsPerKbit,
        faults.count(pid.fault(FaultKind::kContinuity)),
        faults.count(pid.fault(FaultKind::kCrc)));
}

std::string table_columns(TableKind kind, const TableRecord& table) {
    const Spread& intervals = table.repetition().intervals();
    const std::int64_t longest = table.repetition().longest();
    const auto ms_or_dash = [](bool is_known, auto ns) {
        return is_known ? fmt::format("{:8.1f}", to_ms(ns)) : fmt::format("{:>8}", "-");
    };
    const auto version = table.version();
    const auto limit = table_info(kind).repetition_limit_ns;
    return fmt::format("{:>4}", version ? std::to_string(*version) : "-") +
           ms_or_dash(intervals.count > 0, intervals.least) +
           ms_or_dash(intervals.count > 0, intervals.mean()) +
           ms_or_dash(longest > 0, longest) +
           fmt::format("{:>6}", limit ? fmt::format("{:.0f}", to_ms(*limit)) : "-");
}

// Returns a text such as "3 faults".
std::string fault_count(std::uint64_t count, const char* adjective = "") {
    return fmt::format("{} {}fault{}", count, adjective, count == 1 ? "" : "s");
}

std::string joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return text;
}

const char* accepted_mark(const FaultLog& faults, const Fault& fault) {
    return faults.is_accepted(fault) ? "accepted: " : "";
}

std::string fault_text(const FaultLog& faults, const Fault& fault, std::int64_t value) {
    const std::string from(clause(fault));
    return accepted_mark(faults, fault) + describe(fault, value) +
           (from.empty() ? "" : " (" + from + ")");
}

std::string event_text(const FaultLog& faults, const FaultLog::Event& event) {
    if (event.pids.size() <= 1) return fault_text(faults, event.fault, event.value);
    return fmt::format("{}{}: {} PIDs, {} errors ({})",
                       accepted_mark(faults, event.fault), check_name(event.fault.kind),
                       event.pids.size(), event.errors, clause(event.fault));
}

}  // namespace

std::size_t name_width(const Report& report, std::size_t greatest) {
    std::size_t width = kLeastNameWidth;
    for (const auto& [number, pid] : report.stream.pids()) {
        for (const auto& [key, table] : pid.tables)
            width = std::max(width, text_width(name_of(report, key, table, width)));
    }
    return std::min(width, greatest);
}

std::string verdict(const FaultLog& faults) {
    const auto [total, accepted] = faults.all();
    if (total == 0) return "Nothing is outside the limits.";
    if (faults.is_in_order())
        return "Nothing is outside the limits but " + fault_count(accepted, "accepted ") +
               '.';
    return fault_count(total - accepted) + ", the last at " +
           time_of_day(faults.last_time()) +
           (accepted == 0 ? "" : "; " + std::to_string(accepted) + " accepted");
}

Lines silence_lines(const Report& report) {
    return {report.address + ": no datagram has been received.",
            "Is kestan running, and does it send there (its option -O)?"};
}

Lines stream_lines(const Report& report) {
    const StreamStatistics& stream = report.stream;
    const Spread& sizes = stream.packets_per_datagram();
    Lines lines{
        fmt::format("{} for {:.1f} s", report.address, to_seconds(stream.duration())),
        "",
        fmt::format("  bit rate   {:.1f} kbit/s; at most {:.1f} kbit/s in any {} ms",
                    report.rates.stream / kBitsPerKbit,
                    stream.peak_bit_rate() / kBitsPerKbit, kPeakWindowNs / kNsPerMs),
        "  verdict    " + verdict(stream.faults()),
        fmt::format("  datagrams  {} of {} to {} packets, {:.2f} on average{}; "
                    "{} malformed, {} lost here",
                    stream.datagrams(), sizes.least, sizes.greatest, sizes.mean(),
                    stream.is_rtp() ? ", in RTP" : "",
                    stream.faults().count({FaultKind::kMalformed}),
                    stream.lost_datagrams()),
    };
    if (const auto differences = stream.expected_differences())
        lines.push_back(fmt::format("  files      differences: {}", *differences));
    lines.emplace_back();
    return lines;
}

Lines heading_lines(std::size_t name_width) {
    return {fmt::format("{:{}}{:{}}{}", "PID", kPidWidth, "Table", name_width,
                        " packets  kbit/s  cc crc ver       repetition, ms    limit"),
            fmt::format("{:>{}}", "min    mean     max",
                        name_width + kCountsWidth + kTableWidth)};
}

Lines pid_lines(const Report& report, const PidRecord& pid, std::size_t name_width) {
    if (pid.packets == 0 && pid.tables.empty()) return {};
    const auto line = [&](const std::string& name) {
        return pid_text(pid.number) + "  " + padded(name, name_width) +
               pid_columns(report, pid);
    };
    if (pid.tables.empty()) return {line("other")};
    if (pid.tables.size() == 1) {
        const auto& [key, table] = *pid.tables.begin();
        return {line(name_of(report, key, table, name_width)) +
                table_columns(key.kind, table)};
    }
    Lines lines{line(fmt::format("{} tables", pid.tables.size()))};
    for (const auto& [key, table] : pid.tables) {
        lines.push_back("          " +
                        padded(name_of(report, key, table, name_width),
                               name_width - 2 + kCountsWidth) +
                        table_columns(key.kind, table));
    }
    return lines;
}

Lines fault_lines(const FaultLog& faults) {
    Lines lines;
    for (const auto& [fault, record] : faults.records()) {
        lines.push_back("  " + time_of_day(record.first) + "  " +
                        time_of_day(record.last) + fmt::format("{:9}  ", record.count) +
                        fault_text(faults, fault, record.worst));
    }
    return lines;
}

Lines event_lines(const FaultLog& faults) {
    Lines lines;
    const auto& events = faults.last_events();
    for (auto event = events.rbegin(); event != events.rend(); ++event)
        lines.push_back("  " + time_of_day(event->time) + "  " +
                        event_text(faults, *event));
    return lines;
}

std::string text_report(const Report& report) {
    if (report.stream.datagrams() == 0) return joined(silence_lines(report));
    const FaultLog& faults = report.stream.faults();
    const std::size_t width = name_width(report, kGreatestNameWidth);
    std::string text = joined(stream_lines(report));
    text += joined(heading_lines(width));
    for (const auto& [number, pid] : report.stream.pids())
        text += joined(pid_lines(report, pid, width));
    if (faults.all().total == 0) return text;
    text += "\nOutside the limits:\n  first         last              count\n";
    return text + joined(fault_lines(faults));
}
