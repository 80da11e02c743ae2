#include "tools/kestan-monitor/measure/repetition.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

void Repetition::expect(std::int64_t now) {
    expected_ = true;
    timers_.assign(1, Timer{now});
}

void Repetition::withdraw(std::int64_t now) {
    advance(now);
    expected_ = false;
    timers_.clear();
}

std::optional<std::int64_t> Repetition::add(std::uint8_t section_number,
                                            std::uint8_t last_section_number,
                                            std::int64_t now) {
    if (section_number > last_section_number) return std::nullopt;
    timers_.resize(std::size_t{last_section_number} + 1, Timer{now});
    Timer& timer = timers_[section_number];
    if (expected_) look_at(timer, now);
    timer.is_overdue = false;
    const std::int64_t wait = now - std::exchange(timer.since, now);
    if (!std::exchange(timer.has_come, true)) return std::nullopt;
    intervals_.add(wait);
    longest_ = std::max(longest_, wait);
    last_interval_ = wait;
    const auto before = std::exchange(timer.last_interval, wait);
    if (before) jitter_.add(std::abs(wait - *before));
    return wait;
}

void Repetition::advance(std::int64_t now) {
    if (!expected_) return;
    for (Timer& timer : timers_) look_at(timer, now);
}

void Repetition::look_at(Timer& timer, std::int64_t now) {
    const std::int64_t wait = now - timer.since;
    longest_ = std::max(longest_, wait);
    const auto limit = table_info(table_.kind).repetition_limit_ns;
    if (!limit || wait <= *limit) return;
    const auto kind = timer.has_come ? FaultKind::kRepetition : FaultKind::kAbsence;
    const Fault fault{kind, pid_, table_};
    if (!std::exchange(timer.is_overdue, true))
        faults_.add(fault, timer.since + *limit, wait);
    faults_.extend(fault, wait);
}
