#include "tools/kestan-monitor/repetition.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

void Repetition::expect(std::int64_t now) {
    expected_ = true;
    timers_.assign(1, Timer{now});
}

void Repetition::withdraw(std::int64_t now) {
    figures_.longest = std::max(figures_.longest, longest_wait(now));
    expected_ = false;
    timers_.clear();
}

void Repetition::add(std::uint8_t section_number, std::uint8_t last_section_number,
                     std::int64_t now) {
    if (section_number > last_section_number) return;
    timers_.resize(std::size_t{last_section_number} + 1, Timer{now});
    Timer& timer = timers_[section_number];
    const std::int64_t wait = now - std::exchange(timer.since, now);
    const bool is_interval = std::exchange(timer.has_come, true);
    if (is_interval || expected_) figures_.longest = std::max(figures_.longest, wait);
    if (!is_interval) return;
    figures_.intervals.add(wait);
    const auto before = std::exchange(timer.last_interval, wait);
    if (before) figures_.jitter.add(std::abs(wait - *before));
}

Repetition::Figures Repetition::figures(std::int64_t now) const {
    Figures figures = figures_;
    figures.longest = std::max(figures.longest, longest_wait(now));
    return figures;
}

std::int64_t Repetition::longest_wait(std::int64_t now) const {
    if (!expected_ || timers_.empty()) return 0;
    const auto oldest = std::min_element(
        timers_.begin(), timers_.end(),
        [](const Timer& a, const Timer& b) { return a.since < b.since; });
    return now - oldest->since;
}
