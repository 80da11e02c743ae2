#include "tools/kestan-control/on_air.h"

using nlohmann::json;
using nlohmann::ordered_json;

OnAir::OnAir(const Multiplex& tables) {
    for_each_single_table([&](TableKind kind, auto member) {
        if (tables.*member) singles.insert(kind);
    });
    for (const PmtOnPid& pmt : tables.pmts) {
        pids_of[pmt.pmt.program_number].insert(pmt.pid);
    }
}

void OnAir::add(const OnAir& other) {
    singles.insert(other.singles.begin(), other.singles.end());
    for (const auto& [service, pids] : other.pids_of) {
        pids_of[service].insert(pids.begin(), pids.end());
    }
}

ordered_json to_json(const OnAir& on_air) {
    ordered_json to;
    for_each_single_table([&](TableKind kind, auto /*member*/) {
        to[table_info(kind).key] = on_air.has(kind);
    });
    ordered_json& services = to["services"] = ordered_json::array();
    for (const auto& [service, pids] : on_air.pids_of) {
        services.push_back({{"service_id", service}, {"pids", pids}});
    }
    return to;
}

OnAir on_air_from_json(const json& from) {
    OnAir on_air;
    for_each_single_table([&](TableKind kind, auto /*member*/) {
        if (from.value(table_info(kind).key, false)) on_air.singles.insert(kind);
    });
    for (const json& service : from.at("services")) {
        service.at("pids").get_to(on_air.pids_of[service.at("service_id")]);
    }
    return on_air;
}
