#include "tools/kestan-control/push.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <utility>

#include "tools/json/number_text.h"

namespace {

using Service = ControlConnection::Service;

constexpr std::int32_t kRejected = -1;

std::string id_text(std::int32_t id) {
    return std::to_string(id) + " (" + hex_number(id, 4) + ")";
}

std::string pmt_text(const PmtOnPid& on_pid) {
    return "PMT of service " + id_text(on_pid.pmt.program_number) + " on PID " +
           pid_text(on_pid.pid);
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

// Sends tables that differ from the played ones, and records what is played then.
class Sending {
public:
    Sending(ControlConnection& kestan, std::ostream& report)
        : kestan_(kestan), report_(report) {}

    template <typename Table>
    void send_table(const std::string& what, const std::optional<Table>& table,
                    std::optional<Table>& played, const char* method,
                    std::int32_t (Service::*function)(const Table&)) {
        if (table == played) return;
        const bool is_accepted =
            call(what, table->version_number, method,
                 [&](Service& service) { return (service.*function)(*table); });
        if (is_accepted) played = table;
    }

    void send_pmt(const PmtOnPid& pmt, std::vector<PmtOnPid>& played_pmts) {
        const auto played = std::find_if(
            played_pmts.begin(), played_pmts.end(), [&](const PmtOnPid& old) {
                return old.pmt.program_number == pmt.pmt.program_number;
            });
        const bool is_played = played != played_pmts.end();
        if (is_played && *played == pmt) return;
        const bool is_accepted = call(
            pmt_text(pmt), pmt.pmt.version_number, "NewPMT",
            [&](Service& service) { return service.NewPMT(pmt.pmt, as_i16(pmt.pid)); });
        if (!is_accepted) return;
        if (is_played) {
            *played = pmt;
        } else {
            played_pmts.push_back(pmt);
        }
    }

    [[nodiscard]] const std::vector<std::string>& rejected() const { return rejected_; }

private:
    // Returns whether Kestan accepts the table.
    template <typename Call>
    bool call(const std::string& what, std::int32_t version, const char* method,
              Call make_call) {
        const std::int32_t result = kestan_.call(method, make_call);
        report_ << what << ": version " << version << ", " << result_text(version, result)
                << std::endl;
        if (result == kRejected) rejected_.push_back(what);
        return result != kRejected;
    }

    ControlConnection& kestan_;
    std::ostream& report_;
    std::vector<std::string> rejected_;
};

}  // namespace

std::vector<std::string> TableSender::send(ControlConnection& kestan,
                                           const Multiplex& tables) {
    is_known_ = false;
    played_ = {};
    return send_differences(kestan, tables);
}

std::vector<std::string> TableSender::make_play(ControlConnection& kestan,
                                                const Multiplex& tables) {
    const bool was_known = std::exchange(is_known_, false);
    // A PAT or an SDT cannot be withdrawn alone.
    const bool loses_table = (played_.pat && !tables.pat) || (played_.sdt && !tables.sdt);
    if (!was_known || loses_table) {
        clear(kestan);
    } else {
        withdraw(kestan, tables);
    }
    std::vector<std::string> rejected = send_differences(kestan, tables);
    if (rejected.empty()) played_ = tables;  // in their order
    is_known_ = true;
    return rejected;
}

void TableSender::clear(ControlConnection& kestan) {
    kestan.call("ClearAllTables", [](Service& service) { service.ClearAllTables(); });
    played_ = {};
    report_ << "all tables: cleared" << std::endl;
}

void TableSender::withdraw(ControlConnection& kestan, const Multiplex& tables) {
    if (played_.cat && !tables.cat) {
        kestan.call("ClearCAT", [](Service& service) { service.ClearCAT(); });
        played_.cat.reset();
        report_ << "CAT: withdrawn" << std::endl;
    }
    const auto is_withdrawn = [&](const PmtOnPid& old) {
        const auto stays = [&](const PmtOnPid& pmt) {
            return pmt.pmt.program_number == old.pmt.program_number && pmt.pid == old.pid;
        };
        if (std::any_of(tables.pmts.begin(), tables.pmts.end(), stays)) return false;
        kestan.call("StopPMT", [&](Service& service) {
            service.StopPMT(as_i16(old.pmt.program_number), as_i16(old.pid));
        });
        report_ << pmt_text(old) << ": withdrawn" << std::endl;
        return true;
    };
    const auto end =
        std::remove_if(played_.pmts.begin(), played_.pmts.end(), is_withdrawn);
    played_.pmts.erase(end, played_.pmts.end());
}

std::vector<std::string> TableSender::send_differences(ControlConnection& kestan,
                                                       const Multiplex& tables) {
    Sending sending(kestan, report_);
    if (tables.pat) {
        sending.send_table(
            "PAT of transport stream " + id_text(tables.pat->transport_stream_id),
            tables.pat, played_.pat, "NewPAT", &Service::NewPAT);
    }
    if (tables.cat) {
        sending.send_table("CAT", tables.cat, played_.cat, "NewCAT", &Service::NewCAT);
    }
    if (tables.sdt) {
        sending.send_table(
            "SDT of transport stream " + id_text(tables.sdt->transport_stream_id),
            tables.sdt, played_.sdt, "NewSDTActual", &Service::NewSDTActual);
    }
    for (const PmtOnPid& pmt : tables.pmts) sending.send_pmt(pmt, played_.pmts);
    return sending.rejected();
}
