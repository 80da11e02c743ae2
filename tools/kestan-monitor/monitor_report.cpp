#include "tools/kestan-monitor/monitor_report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "dvb/nanoseconds.h"
#include "dvb/ts_packet.h"
#include "tools/kestan-monitor/stream_limits.h"
#include "tools/kestan-monitor/stream_statistics.h"

namespace {

constexpr std::size_t kMaxLine = 256;
constexpr double kBitsPerKbit = 1000;

double ms(double ns) {
    return ns / static_cast<double>(kNsPerMs);
}
double ms(std::int64_t ns) {
    return ms(static_cast<double>(ns));
}
double seconds(std::int64_t ns) {
    return static_cast<double>(ns) / static_cast<double>(kNsPerSecond);
}

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
    std::array<char, kMaxLine> text{};
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text.data(), text.size(), pattern, arguments);
    va_end(arguments);
    return text.data();
}

std::string right(const std::string& text, int width) {
    return format("%*s", width, text.c_str());
}

std::string stream_lines(const std::string& address, const StreamFigures& figures) {
    const Spread& sizes = figures.packets_per_datagram;
    std::string lines =
        format("%s for %.1f s\n\n", address.c_str(), seconds(figures.duration));
    lines += format("  bit rate   %.1f kbit/s; at most %.1f kbit/s in any %.0f ms\n",
                    figures.bit_rate / kBitsPerKbit, figures.peak_bit_rate / kBitsPerKbit,
                    ms(kPeakWindowNs));
    lines += format("  datagrams  %llu of %lld to %lld packets, %.2f on average",
                    static_cast<unsigned long long>(figures.datagrams),
                    static_cast<long long>(sizes.least),
                    static_cast<long long>(sizes.greatest), sizes.mean());
    lines += format("; %llu malformed, %llu lost here\n",
                    static_cast<unsigned long long>(figures.malformed_datagrams),
                    static_cast<unsigned long long>(figures.lost_datagrams));
    lines += format("  jitter     %.2f ms on average, %.2f ms at most\n\n",
                    ms(figures.jitter.mean()), ms(figures.jitter.greatest));
    return lines;
}

// A PID's columns end where a table's begin: version, repetition, limit.
constexpr const char* kHeadings =
    "PID     Table                    packets  kbit/s  cc crc ver       repetition, ms   "
    " limit\n"
    "                                                                 min    mean     "
    "max\n";

std::string label(const TableFigures& table) {
    if (table.kind == TableKind::tdt && !table.utc.empty()) return "TDT " + table.utc;
    const bool is_unknown = table.kind == TableKind::pmt && !table.in_pat;
    return table_name(table) + (is_unknown ? " (not in PAT)" : "");
}

std::string pid_columns(const PidFigures& pid) {
    return format("%8llu%8.1f %3llu %3llu", static_cast<unsigned long long>(pid.packets),
                  pid.bit_rate / kBitsPerKbit,
                  static_cast<unsigned long long>(pid.continuity_errors),
                  static_cast<unsigned long long>(pid.crc_errors));
}

std::string table_columns(const TableFigures& table) {
    const Repetition::Figures& repetition = table.repetition;
    const bool has_intervals = repetition.intervals.count > 0;
    const auto ms_or_dash = [](bool is_known, double ns) {
        return right(is_known ? format("%.1f", ms(ns)) : "-", 8);
    };
    const auto limit = repetition_limit(table.kind);
    return right(table.version ? std::to_string(*table.version) : "-", 4) +
           ms_or_dash(has_intervals, static_cast<double>(repetition.intervals.least)) +
           ms_or_dash(has_intervals, repetition.intervals.mean()) +
           ms_or_dash(repetition.longest > 0, static_cast<double>(repetition.longest)) +
           right(limit ? format("%.0f", ms(*limit)) : "-", 6);
}

// One line for a PID with its table; a PID that several tables share has a line for each.
std::string pid_lines(const PidFigures& pid) {
    const bool is_shared = pid.tables.size() > 1;
    std::string what = "other";
    if (pid.tables.size() == 1) what = label(pid.tables.front());
    if (is_shared) what = format("%zu tables", pid.tables.size());
    std::string lines = format("0x%04X  %-24s", pid.pid, what.c_str()) + pid_columns(pid);
    if (pid.tables.size() == 1) lines += table_columns(pid.tables.front());
    lines += '\n';
    if (!is_shared) return lines;
    for (const TableFigures& table : pid.tables)
        lines +=
            format("          %-46s", label(table).c_str()) + table_columns(table) + '\n';
    return lines;
}

// Null for an empty one.
nlohmann::ordered_json spread_json(const Spread& spread, double unit) {
    if (spread.count == 0) return nullptr;
    return {{"min", static_cast<double>(spread.least) / unit},
            {"mean", spread.mean() / unit},
            {"max", static_cast<double>(spread.greatest) / unit}};
}

nlohmann::ordered_json table_json(const TableFigures& table) {
    constexpr std::array<const char*, 5> names{"PAT", "CAT", "SDT", "PMT", "TDT"};
    nlohmann::ordered_json json;
    json["table"] = names.at(static_cast<std::size_t>(table.kind));
    if (table.kind == TableKind::pmt) {
        json["service_id"] = table.service_id;
        json["in_pat"] = table.in_pat;
    }
    json["sections"] = table.sections;
    if (table.version) json["version"] = *table.version;
    if (!table.utc.empty()) json["utc"] = table.utc;
    json["unversioned_changes"] = table.unversioned_changes;
    json["repetition_ms"] = spread_json(table.repetition.intervals, kNsPerMs);
    json["longest_ms"] = ms(table.repetition.longest);
    if (const auto limit = repetition_limit(table.kind)) json["limit_ms"] = ms(*limit);
    json["jitter_ms"] = spread_json(table.repetition.jitter, kNsPerMs);
    return json;
}

nlohmann::ordered_json pid_json(const PidFigures& pid) {
    nlohmann::ordered_json json{{"pid", pid.pid},
                                {"packets", pid.packets},
                                {"bit_rate", pid.bit_rate},
                                {"continuity_errors", pid.continuity_errors},
                                {"crc_errors", pid.crc_errors},
                                {"wrong_table_ids", pid.wrong_table_ids}};
    json["tables"] = nlohmann::ordered_json::array();
    for (const TableFigures& table : pid.tables)
        json["tables"].push_back(table_json(table));
    return json;
}

}  // namespace

std::string text_report(const std::string& address, const StreamFigures& figures) {
    if (figures.datagrams == 0) {
        return address +
               ": no datagram has been received.\n"
               "Is kestan running, and does it send there (its option -O)?\n";
    }
    std::string report = stream_lines(address, figures) + kHeadings;
    for (const PidFigures& pid : figures.pids) report += pid_lines(pid);
    const std::vector<Violation> violations = find_violations(figures);
    report += violations.empty() ? "\nNothing is outside the limits.\n"
                                 : "\nOutside the limits:\n";
    for (const Violation& violation : violations) report += "  " + violation.text + '\n';
    return report;
}

std::string json_report(const std::string& address, const StreamFigures& figures) {
    nlohmann::ordered_json json{
        {"address", address},
        {"duration_s", seconds(figures.duration)},
        {"datagrams", figures.datagrams},
        {"malformed_datagrams", figures.malformed_datagrams},
        {"lost_datagrams", figures.lost_datagrams},
        {"packets", figures.packets},
        {"packets_per_datagram", spread_json(figures.packets_per_datagram, 1)},
        {"bit_rate", figures.bit_rate},
        {"peak_bit_rate", figures.peak_bit_rate},
        {"peak_window_ms", ms(kPeakWindowNs)},
        {"jitter_ms", spread_json(figures.jitter, kNsPerMs)}};
    json["pids"] = nlohmann::ordered_json::array();
    for (const PidFigures& pid : figures.pids) json["pids"].push_back(pid_json(pid));
    json["outside_limits"] = nlohmann::ordered_json::array();
    for (const Violation& violation : find_violations(figures))
        json["outside_limits"].push_back(
            {{"check", violation.check}, {"text", violation.text}});
    return json.dump(2) + '\n';
}

StreamFigures with_rates_since(StreamFigures now, const StreamFigures& before) {
    const auto rate = [&](std::uint64_t packets) {
        const double time = seconds(now.duration - before.duration);
        return time > 0 ? static_cast<double>(packets * kTsPacketBits) / time : 0;
    };
    now.bit_rate = rate(now.packets - before.packets);
    for (PidFigures& pid : now.pids) {
        const auto earlier =
            std::find_if(before.pids.begin(), before.pids.end(),
                         [&](const PidFigures& other) { return other.pid == pid.pid; });
        const bool was_there = earlier != before.pids.end();
        pid.bit_rate = rate(pid.packets - (was_there ? earlier->packets : 0));
    }
    return now;
}
