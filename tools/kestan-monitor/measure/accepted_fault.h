#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_ACCEPTED_FAULT_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_ACCEPTED_FAULT_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/kestan-monitor/measure/fault.h"

// Faults that are known and are not counted as faults.
struct AcceptedFault {
    FaultKind kind;
    std::string_view rule = {};  // only its faults, unless it is empty
    std::optional<std::uint16_t> pid = std::nullopt;  // only those on it, if there is one

    [[nodiscard]] bool covers(const Fault& fault) const {
        return fault.kind == kind && (rule.empty() || fault.rule == rule) &&
               (!pid || fault.pid == pid);
    }
};

#endif
