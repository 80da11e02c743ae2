#include "tools/kestan-control/push.h"

#include <algorithm>
#include <ostream>

#include "tools/json/number_text.h"

namespace {

using Service = ControlConnection::Service;

constexpr std::int32_t kRejected = -1;

std::string id_text(std::int32_t id) {
    return std::to_string(id) + " (" + hex_number(id, 4) + ")";
}

// Ids and PIDs travel as i16 and carry their 16 bits.
std::int16_t as_i16(std::int32_t id) {
    return static_cast<std::int16_t>(id);
}

std::string result_text(std::int32_t version, std::int32_t result) {
    if (result == kRejected) return "rejected";
    if (result == version) return "accepted";
    return "accepted as version " + std::to_string(result);
}

}  // namespace

std::vector<std::string> push_tables(ControlConnection& kestan,
                                     const Multiplex& multiplex, std::ostream& report) {
    std::vector<std::string> rejected;
    const auto push = [&](const std::string& what, std::int32_t version,
                          const char* method, auto call) {
        const std::int32_t result = kestan.call(method, call);
        report << what << ": version " << version << ", " << result_text(version, result)
               << std::endl;
        if (result == kRejected) rejected.push_back(what);
    };
    if (multiplex.pat) {
        push("PAT of transport stream " + id_text(multiplex.pat->transport_stream_id),
             multiplex.pat->version_number, "NewPAT",
             [&](Service& service) { return service.NewPAT(*multiplex.pat); });
    }
    if (multiplex.cat) {
        push("CAT", multiplex.cat->version_number, "NewCAT",
             [&](Service& service) { return service.NewCAT(*multiplex.cat); });
    }
    if (multiplex.sdt) {
        push("SDT of transport stream " + id_text(multiplex.sdt->transport_stream_id),
             multiplex.sdt->version_number, "NewSDTActual",
             [&](Service& service) { return service.NewSDTActual(*multiplex.sdt); });
    }
    for (const PmtOnPid& on_pid : multiplex.pmts) {
        push("PMT of service " + id_text(on_pid.pmt.program_number) + " on PID " +
                 hex_number(on_pid.pid, 4),
             on_pid.pmt.version_number, "NewPMT", [&](Service& service) {
                 return service.NewPMT(on_pid.pmt, as_i16(on_pid.pid));
             });
    }
    return rejected;
}

void withdraw_tables(ControlConnection& kestan, const Multiplex& before,
                     const Multiplex& now) {
    if ((before.pat && !now.pat) || (before.sdt && !now.sdt)) {
        // Neither can be withdrawn alone.
        kestan.call("ClearAllTables", [](Service& service) { service.ClearAllTables(); });
        return;
    }
    if (before.cat && !now.cat) {
        kestan.call("ClearCAT", [](Service& service) { service.ClearCAT(); });
    }
    for (const PmtOnPid& old : before.pmts) {
        const auto stays = [&](const PmtOnPid& pmt) {
            return pmt.pmt.program_number == old.pmt.program_number && pmt.pid == old.pid;
        };
        if (std::any_of(now.pmts.begin(), now.pmts.end(), stays)) continue;
        kestan.call("StopPMT", [&](Service& service) {
            service.StopPMT(as_i16(old.pmt.program_number), as_i16(old.pid));
        });
    }
}
