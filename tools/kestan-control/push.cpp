#include "tools/kestan-control/push.h"

#include <exception>
#include <iostream>
#include <optional>
#include <type_traits>
#include <utility>

#include "thrift/table_fields.h"
#include "tools/json/number_text.h"
#include "tools/rules/table_index.h"
#include "tools/service/diagnostics.h"

using namespace orvel::thrift::dvb_tables;

namespace {

using Service = ControlConnection::Service;

constexpr std::int32_t kRejected = -1;

constexpr const char* kMayStay =
    "; if kestan had it on another PID, it stays there: see --move";

std::string id_text(std::int32_t id) {
    return std::to_string(id) + " (" + hex_number(id, 4) + ")";
}

std::string pmt_text(std::int32_t service, std::int32_t pid) {
    return "PMT of " + service_text(service) + " on PID " + pid_text(pid);
}

// Ids and PIDs travel as i16 and carry their 16 bits.
std::int16_t as_i16(std::int32_t id) {
    return static_cast<std::int16_t>(id);
}

// Returns the transport stream that a table is of, if it says so.
template <typename Table>
auto stream_text(const Table& table, int /*preferred*/)
    -> decltype(id_text(table.transport_stream_id)) {
    return " of transport stream " + id_text(table.transport_stream_id);
}
template <typename Table>
std::string stream_text(const Table& /*table*/, long /*otherwise*/) {
    return "";
}

std::string result_text(std::int32_t version, std::int32_t result) {
    if (result == kRejected) return "rejected";
    if (result == version) return "accepted";
    return "accepted as version " + std::to_string(result);
}

// One push. Knows what is on air while it goes on.
class Sending {
public:
    // `on_air` is what Kestan can have, `played` those whose content is known.
    Sending(ControlConnection& kestan, OnAir on_air, Multiplex played)
        : kestan_(kestan), on_air_(std::move(on_air)), played_(std::move(played)) {}

    void clear() {
        kestan_.call("ClearAllTables",
                     [](Service& service) { service.ClearAllTables(); });
        on_air_ = {};
        played_ = {};
        std::cout << "all tables: cleared" << std::endl;
    }

    // Withdraws what the tables lack, and a PMT that can be on another PID than there.
    void withdraw_all_but(const Multiplex& tables) {
        const OnAir wanted(tables);
        for (const TableKind kind : on_air_.singles) {
            // Only a CAT can be withdrawn alone.
            if (kind != TableKind::kCat && !wanted.has(kind)) return clear();
        }
        if (on_air_.has(TableKind::kCat) && !tables.cat) clear_cat();
        const auto pids_of = on_air_.pids_of;
        for (const auto& [service, pids] : pids_of) {
            const auto found = wanted.pids_of.find(service);
            if (found != wanted.pids_of.end() && found->second == pids) continue;
            std::cout << pmt_text(service, *pids.begin()) << ": withdrawn" << std::endl;
            stop_pmt(service);
        }
    }

    // Stops the service if it can be on another PID than this. Returns whether it is
    // known where it can be.
    bool make_room_for(const PmtOnPid& pmt) {
        const std::int32_t service = pmt.pmt.program_number;
        const auto known = on_air_.pids_of.find(service);
        if (known == on_air_.pids_of.end()) return false;
        for (const std::uint16_t pid : known->second) {
            if (pid == pmt.pid) continue;
            std::cout << pmt_text(service, pid) << ": stopped, it moves to PID "
                      << pid_text(pmt.pid) << std::endl;
            stop_pmt(service);
            return true;
        }
        return true;
    }

    // Stops the service, wherever it is. Returns true.
    bool stop(const PmtOnPid& pmt) {
        std::cout << "PMT of " << service_text(pmt.pmt.program_number)
                  << ": stopped before it is sent" << std::endl;
        stop_pmt(pmt.pmt.program_number);
        return true;
    }

    // Sends the tables, without the PMTs, that differ from the played ones.
    void send_single_tables(const Multiplex& tables) {
        for_each_single_table([&](TableKind kind, auto member) {
            const auto& table = tables.*member;
            if (!table || table == played_.*member) return;
            using Fields = TableFields<std::decay_t<decltype(*table)>>;
            const bool is_accepted =
                call(table_info(kind).name + stream_text(*table, 0),
                     table->version_number, Fields::method,
                     [&](Service& service) { return Fields::send(service, *table); });
            if (is_accepted) played_.*member = table;
        });
    }

    // Sends the PMT if it differs from the played one. `note` follows "accepted".
    void send_pmt(const PmtOnPid& pmt, const char* note = "") {
        PmtOnPid* const played = find_pmt(played_.pmts, pmt.pmt.program_number);
        if (played != nullptr && *played == pmt) return;
        const bool is_accepted = call(
            pmt_text(pmt.pmt.program_number, pmt.pid), pmt.pmt.version_number, "NewPMT",
            [&](Service& service) { return service.NewPMT(pmt.pmt, as_i16(pmt.pid)); },
            note);
        if (!is_accepted) return;
        if (played == nullptr) {
            played_.pmts.push_back(pmt);
        } else {
            *played = pmt;
        }
    }

    [[nodiscard]] OnAir on_air() const {
        OnAir all = on_air_;
        all.add(OnAir(played_));
        return all;
    }
    [[nodiscard]] const Multiplex& played() const { return played_; }
    [[nodiscard]] const std::vector<std::string>& rejected() const { return rejected_; }

private:
    void clear_cat() {
        kestan_.call("ClearCAT", [](Service& service) { service.ClearCAT(); });
        on_air_.singles.erase(TableKind::kCat);
        played_.cat.reset();
        std::cout << "CAT: withdrawn" << std::endl;
    }

    // Kestan takes the service off whatever PID it is on; it only logs the PID.
    void stop_pmt(std::int32_t service) {
        const auto known = on_air_.pids_of.find(service);
        const std::int32_t pid =
            known == on_air_.pids_of.end() ? 0 : *known->second.begin();
        kestan_.call("StopPMT", [&](Service& kestan) {
            kestan.StopPMT(as_i16(service), as_i16(pid));
        });
        on_air_.pids_of.erase(service);
        const PmtOnPid* const played = find_pmt(played_.pmts, service);
        if (played != nullptr)
            played_.pmts.erase(played_.pmts.begin() + (played - played_.pmts.data()));
    }

    // Returns whether Kestan accepts the table.
    template <typename Call>
    bool call(const std::string& what, std::int32_t version, const char* method,
              Call make_call, const char* note = "") {
        const std::int32_t result = kestan_.call(method, make_call);
        const bool is_accepted = result != kRejected;
        std::cout << what << ": version " << version << ", "
                  << result_text(version, result) << (is_accepted ? note : "")
                  << std::endl;
        if (!is_accepted) rejected_.push_back(what);
        return is_accepted;
    }

    ControlConnection& kestan_;
    OnAir on_air_;
    Multiplex played_;
    std::vector<std::string> rejected_;
};

}  // namespace

TableSender::TableSender(const char* name, const ControlAddress& address,
                         const char* effect, bool forgets)
    : file_(name, address), effect_(effect) {
    file_.load(effect, [this](const nlohmann::json& content) {
        on_air_ = on_air_from_json(content);
    });
    if (forgets) on_air_.reset();
}

std::vector<std::string> TableSender::send(ControlConnection& kestan,
                                           const Multiplex& tables, bool stops_all) {
    Sending sending(kestan, on_air_.value_or(OnAir()), {});
    expect(tables);
    sending.send_single_tables(tables);
    for (const PmtOnPid& pmt : tables.pmts) {
        const bool is_sure = stops_all ? sending.stop(pmt) : sending.make_room_for(pmt);
        sending.send_pmt(pmt, is_sure ? "" : kMayStay);
    }
    keep(sending.on_air());
    return sending.rejected();
}

std::vector<std::string> TableSender::make_play(ControlConnection& kestan,
                                                const Multiplex& tables) {
    Sending sending(kestan, on_air_.value_or(OnAir()), std::exchange(played_, {}));
    // What is recorded stays until nothing is on air for certain.
    if (!on_air_) sending.clear();
    expect(tables);
    sending.withdraw_all_but(tables);
    sending.send_single_tables(tables);
    for (const PmtOnPid& pmt : tables.pmts) sending.send_pmt(pmt);
    keep(sending.on_air());
    played_ = sending.rejected().empty() ? tables : sending.played();  // in their order
    return sending.rejected();
}

void TableSender::kestan_has_started() {
    on_air_.emplace();
    played_ = {};
}

void TableSender::expect(const Multiplex& tables) {
    OnAir on_air = on_air_.value_or(OnAir());
    on_air.add(OnAir(tables));
    keep(on_air);
}

void TableSender::keep(const OnAir& on_air) {
    on_air_ = on_air;
    try {
        file_.save(to_json(on_air));
        has_failed_ = false;
    } catch (const std::exception& error) {
        const bool is_removed = file_.remove();
        if (has_failed_) return;
        has_failed_ = true;
        warn(std::string(error.what()) + ": " +
             (is_removed ? effect_ : "remove it: it is out of date"));
    }
}
