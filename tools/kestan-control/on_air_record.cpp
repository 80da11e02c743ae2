#include "tools/kestan-control/on_air_record.h"

#include <exception>
#include <string>

#include "tools/kestan-control/diagnostics.h"
#include "tools/rules/finding.h"

using nlohmann::json;
using nlohmann::ordered_json;

namespace {

ordered_json to_json(const OnAir& on_air) {
    ordered_json services = ordered_json::array();
    for (const auto& [service, pids] : on_air.pids_of) {
        services.push_back({{"service_id", service}, {"pids", pids}});
    }
    return {{"pat", on_air.pat},
            {"cat", on_air.cat},
            {"sdt", on_air.sdt},
            {"services", services}};
}

OnAir from_json(const json& from) {
    OnAir on_air;
    from.at("pat").get_to(on_air.pat);
    from.at("cat").get_to(on_air.cat);
    from.at("sdt").get_to(on_air.sdt);
    for (const json& service : from.at("services")) {
        service.at("pids").get_to(on_air.pids_of[service.at("service_id")]);
    }
    return on_air;
}

void warn(const std::string& what, const char* effect) {
    complain(Severity::kWarning,
             std::string(name_of(Severity::kWarning)) + ": " + what + ": " + effect);
}

}  // namespace

OnAir::OnAir(const Multiplex& tables)
    : pat(tables.pat.has_value()),
      cat(tables.cat.has_value()),
      sdt(tables.sdt.has_value()) {
    for (const PmtOnPid& pmt : tables.pmts) {
        pids_of[pmt.pmt.program_number].insert(pmt.pid);
    }
}

void OnAir::add(const OnAir& other) {
    pat = pat || other.pat;
    cat = cat || other.cat;
    sdt = sdt || other.sdt;
    for (const auto& [service, pids] : other.pids_of) {
        pids_of[service].insert(pids.begin(), pids.end());
    }
}

std::optional<OnAir> OnAirRecord::load() {
    try {
        return file_.load(from_json);
    } catch (const std::exception& error) {
        warn(error.what(), effect_);
        return std::nullopt;
    }
}

void OnAirRecord::save(const OnAir& on_air) {
    try {
        file_.save(to_json(on_air));
        has_failed_ = false;
    } catch (const std::exception& error) {
        const bool is_removed = file_.remove();
        if (has_failed_) return;
        has_failed_ = true;
        warn(error.what(), is_removed ? effect_ : "remove it: it is out of date");
    }
}
