#include "tests/support/accountant.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "framework/psi_si.h"
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

Accountant::Accountant(Wire& wire) : wire_(wire) {
    handler_.emplace();
}

template <typename Table>
std::int32_t Accountant::keep(std::int32_t result, const Table& table,
                              std::optional<Table>& kept, std::uint16_t pid) {
    if (result < 0) return result;
    kept = table;
    kept->version_number = result;
    wire_.allow_break(pid);
    return result;
}

std::int32_t Accountant::NewPAT(const PAT& pat) {
    return keep(handler_->NewPAT(pat), pat, pat_, kPatPid);
}

std::int32_t Accountant::NewCAT(const CAT& cat) {
    return keep(handler_->NewCAT(cat), cat, cat_, kCatPid);
}

std::int32_t Accountant::NewSDTActual(const SDT& sdt) {
    return keep(handler_->NewSDTActual(sdt), sdt, sdt_, kSdtPid);
}

std::int32_t Accountant::NewPMT(const PMT& pmt, std::int16_t pid_bits) {
    const std::int32_t result = handler_->NewPMT(pmt, pid_bits);
    if (result < 0) return result;
    const auto pid = static_cast<std::uint16_t>(pid_bits);
    const auto service = static_cast<std::uint16_t>(pmt.program_number);
    if (pids_.emplace(service, pid).first->second != pid) return result;
    return keep(result, pmt, pmts_[service], pid);
}

void Accountant::StopPMT(std::int16_t service_id, std::int16_t pid) {
    handler_->StopPMT(service_id, pid);
    forget_pmt(static_cast<std::uint16_t>(service_id));
}

void Accountant::ClearCAT() {
    handler_->ClearCAT();
    cat_.reset();
    wire_.allow_break(kCatPid);
}

void Accountant::ClearAllTables() {
    handler_->ClearAllTables();
    forget_everything();
}

void Accountant::newScramblingConfig(
    const orvel::thrift::ci_module::ScramblingConfig& config) {
    handler_->newScramblingConfig(config);
}

void Accountant::EMM(const orvel::thrift::ci_module::EMMData& emm) {
    handler_->EMM(emm);
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
    pat_.reset();
    cat_.reset();
    sdt_.reset();
    for (const auto pid : {kPatPid, kCatPid, kSdtPid}) wire_.allow_break(pid);
    while (!pids_.empty()) forget_pmt(pids_.begin()->first);
}

void Accountant::forget_pmt(std::uint16_t service) {
    const auto known = pids_.find(service);
    if (known == pids_.end()) return;
    const std::uint16_t pid = known->second;
    pids_.erase(known);
    pmts_.erase(service);
    wire_.allow_break(pid);
    const auto is_on_pid = [pid](const auto& other) { return other.second == pid; };
    if (std::none_of(pids_.begin(), pids_.end(), is_on_pid)) wire_.expect_new_stream(pid);
}

void Accountant::check() const {
    const Multiplex seen = wire_.tables(pids_);
    // The receiver does not decode a PAT without programs.
    if (!pat_ || !pat_->programs.empty()) expect_seen(seen.pat, pat_);
    expect_seen(seen.cat, cat_);
    expect_seen(seen.sdt, sdt_);
    std::map<std::uint16_t, std::size_t> services_on;
    for (const auto& [service, pid] : pids_) {
        ++services_on[pid];
        const auto is_it = [number = service](const PmtOnPid& on_pid) {
            return on_pid.pmt.program_number == number;
        };
        const auto found = std::find_if(seen.pmts.begin(), seen.pmts.end(), is_it);
        // Program 0 is the network's: the receiver looks for no PMT of it.
        if (service == 0) continue;
        expect_seen(found == seen.pmts.end() ? std::nullopt : std::optional(found->pmt),
                    pmts_.at(service));
    }
    for (const auto& [pid, count] : services_on) {
        EXPECT_EQ(wire_.pids().at(pid).sections.size(), count) << pid;
    }
    const std::size_t fixed = 1 + pat_.has_value() + cat_.has_value() + sdt_.has_value();
    EXPECT_EQ(wire_.pids().size(), fixed + services_on.size());
    EXPECT_EQ(the_muxer->streams.size(), kFixedStreams + services_on.size());
}
