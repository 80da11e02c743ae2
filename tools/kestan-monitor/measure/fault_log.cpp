#include "tools/kestan-monitor/measure/fault_log.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "dvb/nanoseconds.h"

namespace {

bool is_worse(std::int64_t value, std::int64_t than, FaultKind kind) {
    if (kind == FaultKind::kSectionGap) return value < than;
    return std::abs(value) > std::abs(than);
}

}  // namespace

bool FaultLog::is_accepted(const Fault& fault) const {
    return std::any_of(
        accepted_.begin(), accepted_.end(),
        [&](const AcceptedFault& accepted) { return accepted.covers(fault); });
}

void FaultLog::add(const Fault& fault, std::int64_t time, std::int64_t value,
                   std::uint64_t count) {
    const std::int64_t civil = to_civil(time);
    const bool is_known = is_accepted(fault);
    for (Count* const of : {&all_, &of_kind_.at(static_cast<std::size_t>(fault.kind))}) {
        of->total += count;
        if (is_known) of->accepted += count;
    }
    if (!is_known) last_time_ = civil;
    add_event(fault, civil, value, count);
    auto found = records_.find(fault);
    if (found == records_.end()) {
        if (records_.size() == kMaxFaults) return;
        found = records_.emplace(fault, Record{0, civil, civil, value}).first;
    }
    Record& record = found->second;
    record.count += count;
    record.last = civil;
    if (is_worse(value, record.worst, fault.kind)) record.worst = value;
}

void FaultLog::add_event(const Fault& fault, std::int64_t civil, std::int64_t value,
                         std::uint64_t count) {
    Event event{civil, fault, value};
    if (fault.kind == FaultKind::kContinuity) {
        const auto of_same_gap =
            std::find_if(events_.begin(), events_.end(), [&](const Event& other) {
                return other.fault.kind == fault.kind &&
                       is_accepted(other.fault) == is_accepted(fault) &&
                       civil - other.time < kNsPerSecond;
            });
        event.errors = count;
        if (of_same_gap != events_.end()) {
            event.errors += of_same_gap->errors;
            event.pids = std::move(of_same_gap->pids);
            events_.erase(of_same_gap);
        }
        if (fault.pid) event.pids.insert(*fault.pid);
    }
    events_.push_back(std::move(event));
    if (events_.size() > kEvents) events_.pop_front();
}

void FaultLog::extend(const Fault& fault, std::int64_t value) {
    const auto found = records_.find(fault);
    if (found == records_.end()) return;
    if (is_worse(value, found->second.worst, fault.kind)) found->second.worst = value;
    for (Event& event : events_) {
        const bool is_same = !(event.fault < fault) && !(fault < event.fault);
        if (is_same && is_worse(value, event.value, fault.kind)) event.value = value;
    }
}

std::uint64_t FaultLog::count(const Fault& fault) const {
    const auto found = records_.find(fault);
    return found == records_.end() ? 0 : found->second.count;
}
