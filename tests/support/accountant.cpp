#include "tests/support/accountant.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "dvb/psi_si.h"
#include "mux/muxer.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::size_t kFixedStreams = 4;

// A receiver passes over tables that are not in force yet.
template <typename Table>
void expect_seen(const std::optional<Table>& seen, const std::optional<Table>& played) {
    if (played && !played->current_next_indicator) return;
    EXPECT_EQ(seen, played);
}

}  // namespace

template <typename Table, typename Kept>
std::int32_t Accountant::keep(std::int32_t result, Table table, Kept& kept,
                              std::uint16_t pid) {
    if (result < 0) return result;
    table.version_number = result;
    kept = std::move(table);
    wire_.allow_break(pid);
    return result;
}

std::int32_t Accountant::NewPAT(const PAT& pat) {
    return keep(handler_->NewPAT(pat), pat, played_.pat, kPatPid);
}

std::int32_t Accountant::NewCAT(const CAT& cat) {
    return keep(handler_->NewCAT(cat), cat, played_.cat, kCatPid);
}

std::int32_t Accountant::NewSDTActual(const SDT& sdt) {
    return keep(handler_->NewSDTActual(sdt), sdt, played_.sdt, kSdtPid);
}

std::int32_t Accountant::NewPMT(const PMT& pmt, std::int16_t pid_bits) {
    const std::int32_t result = handler_->NewPMT(pmt, pid_bits);
    if (result < 0) return result;
    const auto pid = static_cast<std::uint16_t>(pid_bits);
    const auto service = static_cast<std::uint16_t>(pmt.program_number);
    PmtOnPid& played = pmts_.try_emplace(service, PmtOnPid{pid, {}}).first->second;
    return played.pid == pid ? keep(result, pmt, played.pmt, pid) : result;
}

void Accountant::StopPMT(std::int16_t service_id, std::int16_t pid) {
    handler_->StopPMT(service_id, pid);
    forget_pmt(static_cast<std::uint16_t>(service_id));
}

void Accountant::ClearCAT() {
    handler_->ClearCAT();
    played_.cat.reset();
    wire_.allow_break(kCatPid);
}

void Accountant::ClearAllTables() {
    handler_->ClearAllTables();
    forget_everything();
}

void Accountant::restart() {
    handler_.reset();
    EXPECT_EQ(the_muxer->streams.size(), 0u);
    handler_.emplace();
    forget_everything();
    for (const auto pid : {kPatPid, kCatPid, kSdtPid, kTdtPid})
        wire_.expect_new_stream(pid);
}

void Accountant::forget_everything() {
    played_ = {};
    for (const auto pid : {kPatPid, kCatPid, kSdtPid}) wire_.allow_break(pid);
    while (!pmts_.empty()) forget_pmt(pmts_.begin()->first);
}

void Accountant::forget_pmt(std::uint16_t service) {
    const auto known = pmts_.find(service);
    if (known == pmts_.end()) return;
    const std::uint16_t pid = known->second.pid;
    pmts_.erase(known);
    wire_.allow_break(pid);
    const auto is_on_pid = [pid](const auto& other) { return other.second.pid == pid; };
    if (std::none_of(pmts_.begin(), pmts_.end(), is_on_pid)) wire_.expect_new_stream(pid);
}

void Accountant::check() const {
    std::map<std::uint16_t, std::uint16_t> pids;
    std::map<std::uint16_t, std::size_t> services_on;
    for (const auto& [service, played] : pmts_) {
        pids[service] = played.pid;
        ++services_on[played.pid];
    }
    const Multiplex seen = wire_.tables(pids);
    // The receiver does not decode a PAT without programs.
    if (!played_.pat || !played_.pat->programs.empty())
        expect_seen(seen.pat, played_.pat);
    expect_seen(seen.cat, played_.cat);
    expect_seen(seen.sdt, played_.sdt);
    for (const auto& [service, played] : pmts_) {
        if (service == 0) continue;  // the network's: the receiver looks for no PMT of it
        std::optional<PMT> found;
        for (const PmtOnPid& on_pid : seen.pmts) {
            if (on_pid.pmt.program_number == service) found = on_pid.pmt;
        }
        expect_seen(found, std::optional(played.pmt));
    }
    for (const auto& [pid, count] : services_on) {
        EXPECT_EQ(wire_.pids().at(pid).sections.size(), count) << pid;
    }
    const std::size_t fixed =
        1 + played_.pat.has_value() + played_.cat.has_value() + played_.sdt.has_value();
    EXPECT_EQ(wire_.pids().size(), fixed + services_on.size());
    EXPECT_EQ(the_muxer->streams.size(), kFixedStreams + services_on.size());
}
