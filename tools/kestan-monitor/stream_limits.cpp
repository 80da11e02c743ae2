#include "tools/kestan-monitor/stream_limits.h"

#include <array>
#include <cstdio>

#include "dvb/nanoseconds.h"

namespace {

constexpr std::int64_t kPatLimitNs = 500 * kNsPerMs;     // ETSI TR 101 290, 1.3.a
constexpr std::int64_t kPmtLimitNs = 500 * kNsPerMs;     // ETSI TR 101 290, 1.5.a
constexpr std::int64_t kSdtLimitNs = 2 * kNsPerSecond;   // ETSI TR 101 211, 4.4
constexpr std::int64_t kTdtLimitNs = 30 * kNsPerSecond;  // ETSI TR 101 211, 4.4

// Between two sections of one SI table, in streams below 100 Mbit/s (EN 300 468, 5.1.4).
constexpr std::int64_t kLeastSectionGapNs = 25 * kNsPerMs;

std::string ms(std::int64_t ns) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms",
                  static_cast<double>(ns) / static_cast<double>(kNsPerMs));
    return text.data();
}

std::string on_pid(std::uint16_t pid) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "PID 0x%04X: ", pid);
    return text.data();
}

bool has_section_gaps(TableKind kind) {
    return kind == TableKind::sdt || kind == TableKind::tdt;
}

class Finder {
public:
    void look_at(const StreamFigures& stream) {
        if (stream.datagrams == 0)
            return add("reception", "no datagram has been received");
        count("malformed", "", stream.malformed_datagrams,
              "datagrams that are not whole transport packets");
        count("lost", "", stream.lost_datagrams,
              "datagrams lost on this machine, for want of time or of socket buffer");
        for (const PidFigures& pid : stream.pids) look_at(pid);
    }

    std::vector<Violation> found;

private:
    void look_at(const PidFigures& pid) {
        const std::string where = on_pid(pid.pid);
        count("continuity", where, pid.continuity_errors, "continuity errors");
        count("crc", where, pid.crc_errors, "sections with a wrong CRC_32");
        count("table_id", where, pid.wrong_table_ids,
              "sections with a table_id that this PID must not carry");
        for (const TableFigures& table : pid.tables)
            look_at(table, where + table_name(table));
    }

    void look_at(const TableFigures& table, const std::string& which) {
        const std::optional<std::int64_t> limit = repetition_limit(table.kind);
        const std::int64_t longest = table.repetition.longest;
        if (limit && longest > *limit) {
            const char* const what =
                table.sections == 0 ? ": none came in " : ": a section was away for ";
            add("repetition",
                which + what + ms(longest) + ", at most " + ms(*limit) + " are allowed");
        }
        count("version", which, table.unversioned_changes,
              ": sections that changed, but not their version");
        const Spread& gaps = table.section_gaps;
        if (has_section_gaps(table.kind) && gaps.count > 0 &&
            gaps.least < kLeastSectionGapNs) {
            add("section_gap", which + ": a section came " + ms(gaps.least) +
                                   " after another, at least " + ms(kLeastSectionGapNs) +
                                   " are asked");
        }
    }

    void count(const char* check, const std::string& where, std::uint64_t number,
               const char* what) {
        if (number > 0) add(check, where + what + ": " + std::to_string(number));
    }

    void add(const char* check, std::string text) {
        found.push_back({check, std::move(text)});
    }
};

}  // namespace

std::optional<std::int64_t> repetition_limit(TableKind kind) {
    switch (kind) {
        case TableKind::pat:
            return kPatLimitNs;
        case TableKind::pmt:
            return kPmtLimitNs;
        case TableKind::sdt:
            return kSdtLimitNs;
        case TableKind::tdt:
            return kTdtLimitNs;
        case TableKind::cat:
            break;
    }
    return std::nullopt;
}

std::string table_name(const TableFigures& table) {
    switch (table.kind) {
        case TableKind::pat:
            return "PAT";
        case TableKind::cat:
            return "CAT";
        case TableKind::sdt:
            return "SDT actual";
        case TableKind::tdt:
            return "TDT";
        case TableKind::pmt:
            break;
    }
    return "PMT of service " + std::to_string(table.service_id);
}

std::vector<Violation> find_violations(const StreamFigures& figures) {
    Finder finder;
    finder.look_at(figures);
    return finder.found;
}
