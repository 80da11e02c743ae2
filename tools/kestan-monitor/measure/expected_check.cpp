#include "tools/kestan-monitor/measure/expected_check.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "tools/receive/table_decoder.h"

namespace {

constexpr std::int64_t kLeastDurationNs = 2 * kNsPerSecond;

bool is_on_air(TableKind kind, const TableRecord& table, std::int64_t now) {
    if (kind == TableKind::kTdt || !table.is_complete()) return false;
    const std::int64_t limit = table_info(kind).repetition_limit_ns.value_or(
        *table_info(TableKind::kSdt).repetition_limit_ns);
    return now - *table.last_section() <= limit;
}

void decode(std::uint16_t pid, TableKind kind, const SectionSet& table, Multiplex& to) {
    for_each_single_table([&](TableKind single, auto member) {
        using Table = std::decay_t<decltype(*(to.*member))>;
        if (single == kind) to.*member = decode_table<Table>(table);
    });
    if (kind != TableKind::kPmt) return;
    auto pmt = decode_table<orvel::thrift::dvb_tables::PMT>(table);
    if (pmt) to.pmts.push_back({pid, *std::move(pmt)});
}

}  // namespace

void ExpectedCheck::expect(Multiplex files, bool compares_versions) {
    files_ = std::move(files);
    compares_versions_ = compares_versions;
    on_air_.reset();
}

void ExpectedCheck::advance(std::int64_t now, const PidRecords& pids,
                            bool has_new_tables) {
    if (!files_) return;
    std::vector<std::pair<std::uint16_t, TableKey>> on_air;
    for (const auto& [number, pid] : pids) {
        for (const auto& [key, table] : pid.tables) {
            if (is_on_air(key.kind, table, now)) on_air.emplace_back(number, key);
        }
    }
    if (has_new_tables || on_air != on_air_) {
        Multiplex tables;
        for (const auto& [number, key] : on_air)
            decode(number, key.kind, pids.at(number).tables.at(key).contents(), tables);
        compare(now, tables);
        on_air_ = std::move(on_air);
    }
    log_begun_by(now - kLeastDurationNs - 1);
}

void ExpectedCheck::compare(std::int64_t now, const Multiplex& on_air) {
    std::map<Place, Difference> found;
    for (TableDifference& difference :
         table_differences(on_air, *files_, compares_versions_)) {
        const TableKey table{difference.table, difference.service_id};
        const Place place{difference.kind, difference.pid, table};
        Fault fault{FaultKind::kExpected, difference.pid, table};
        fault.detail = std::move(difference.text);
        const auto before = differences_.find(place);
        const bool is_new = before == differences_.end();
        if (!is_new && before->second.fault.detail == fault.detail) {
            found.insert(*before);
            continue;
        }
        const std::int64_t since = is_new ? now : before->second.since;
        found.emplace(place, Difference{std::move(fault), since, now});
    }
    differences_.swap(found);
}

void ExpectedCheck::forget() {
    differences_.clear();
    on_air_.reset();
}

// Logs those that have been there since this time or earlier.
void ExpectedCheck::log_begun_by(std::int64_t latest) {
    for (auto& [place, difference] : differences_) {
        if (difference.since > latest || std::exchange(difference.is_logged, true))
            continue;
        faults_.add(difference.fault, difference.found);
    }
}

std::optional<std::size_t> ExpectedCheck::differences() const {
    if (!on_air_) return std::nullopt;
    return std::count_if(
        differences_.begin(), differences_.end(), [&](const auto& element) {
            const Difference& difference = element.second;
            return difference.is_logged && !faults_.is_accepted(difference.fault);
        });
}
