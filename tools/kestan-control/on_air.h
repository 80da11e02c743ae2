#ifndef KESTAN_TOOLS_KESTAN_CONTROL_ON_AIR_H
#define KESTAN_TOOLS_KESTAN_CONTROL_ON_AIR_H

#include <cstdint>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "tools/model/multiplex.h"

// Which tables Kestan can have from this program, without their content. After a push
// that broke off, a table may be missing, and a service may be on one of several PIDs.
struct OnAir {
    std::set<TableKind> singles;                              // all tables but PMTs
    std::map<std::int32_t, std::set<std::uint16_t>> pids_of;  // by service

    OnAir() = default;
    explicit OnAir(const Multiplex& tables);

    [[nodiscard]] bool has(TableKind single) const { return singles.count(single) != 0; }

    // Adds what `other` has.
    void add(const OnAir& other);

    bool operator==(const OnAir& other) const {
        return singles == other.singles && pids_of == other.pids_of;
    }
};

// Write and read it in JSON. Reading throws a std::exception if it is something else.
[[nodiscard]] nlohmann::ordered_json to_json(const OnAir& on_air);
[[nodiscard]] OnAir on_air_from_json(const nlohmann::json& from);

#endif
