#include "tools/kestan-monitor/measure/table_record.h"

#include <utility>

#include "dvb/psi_si.h"

namespace {

std::int64_t from_bcd(std::uint8_t byte) {
    return (byte >> 4) * 10 + (byte & 0x0F);
}

// Converts a UTC_time (ETSI EN 300 468, 5.2.5) to seconds since 1970.
std::int64_t utc_seconds(const std::uint8_t* utc_time) {
    const std::int64_t days = (utc_time[0] << 8 | utc_time[1]) - kMjdOfEpoch;
    return days * kSecondsPerDay + from_bcd(utc_time[2]) * 3600 +
           from_bcd(utc_time[3]) * 60 + from_bcd(utc_time[4]);
}

}  // namespace

TableRecord::Arrival TableRecord::add(const Section& section, std::int64_t start,
                                      std::int64_t end) {
    ++sections_;
    check_gap(start, end);
    Arrival arrival;
    if (key_.kind == TableKind::kTdt) {
        arrival.interval = repetition_.add(0, 0, end);
        utc_ = utc_seconds(section.body());
    } else {
        arrival.interval = repetition_.add(section.number(), section.last_number(), end);
        const SectionSet::Change change = contents_.add(section);
        arrival.is_changed = change != SectionSet::Change::kNone;
        if (change == SectionSet::Change::kReplaced)
            faults_.add(fault(FaultKind::kVersion), end);
    }
    return arrival;
}

void TableRecord::check_gap(std::int64_t start, std::int64_t end) {
    const auto last_end = std::exchange(last_end_, end);
    if (!last_end || !table_info(key_.kind).has_gap_limit) return;
    const std::int64_t gap = start - *last_end;
    if (gap < kLeastSectionGapNs) faults_.add(fault(FaultKind::kSectionGap), start, gap);
}
