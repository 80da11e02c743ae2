#include "tests/support/handler_model.h"

#include <set>

#include <gtest/gtest.h>

#include "dvb/table_kind.h"
#include "mux/muxer.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr int kNoService = -1;
constexpr std::size_t kFixedStreams = 4;

}  // namespace

template <typename Table>
std::int32_t HandlerModel::play(std::int32_t result, Table table, std::uint16_t pid,
                                int service) {
    if (result < 0) return result;
    table.version_number = result;
    played_[pid][service] = sections_of(table);
    return result;
}

std::int32_t HandlerModel::NewPAT(const PAT& pat) {
    return play(handler_->NewPAT(pat), pat, kPatPid, kNoService);
}

std::int32_t HandlerModel::NewCAT(const CAT& cat) {
    return play(handler_->NewCAT(cat), cat, kCatPid, kNoService);
}

std::int32_t HandlerModel::NewSDTActual(const SDT& sdt) {
    return play(handler_->NewSDTActual(sdt), sdt, kSdtPid, kNoService);
}

std::int32_t HandlerModel::NewPMT(const PMT& pmt, std::int16_t pid_bits) {
    const std::int32_t result = handler_->NewPMT(pmt, pid_bits);
    const auto pid = static_cast<std::uint16_t>(pid_bits);
    const auto service = static_cast<std::uint16_t>(pmt.program_number);
    const bool is_elsewhere = pid_of_service(service).value_or(pid) != pid;
    return is_elsewhere ? result : play(result, pmt, pid, service);
}

std::optional<std::uint16_t> HandlerModel::pid_of_service(int service) const {
    for (const auto& [pid, services] : played_) {
        if (services.count(service) != 0) return pid;
    }
    return std::nullopt;
}

void HandlerModel::end_pmt(std::uint16_t pid, int service) {
    played_[pid].erase(service);
    if (!played_[pid].empty()) return;
    played_.erase(pid);
    receiver_.end_stream(pid);
}

void HandlerModel::StopPMT(std::int16_t service_id, std::int16_t pid_bits) {
    handler_->StopPMT(service_id, pid_bits);
    const auto service = static_cast<std::uint16_t>(service_id);
    if (const auto pid = pid_of_service(service)) end_pmt(*pid, service);
}

void HandlerModel::ClearCAT() {
    handler_->ClearCAT();
    played_.erase(kCatPid);
}

void HandlerModel::ClearAllTables() {
    handler_->ClearAllTables();
    for (const auto& [pid, services] : std::exchange(played_, {})) {
        if (services.count(kNoService) == 0) receiver_.end_stream(pid);
    }
}

void HandlerModel::restart() {
    handler_.reset();
    EXPECT_EQ(the_muxer->streams.size(), 0u);
    handler_.emplace();
    played_.clear();
    receiver_ = Receiver();
}

void HandlerModel::check() const {
    std::map<std::uint16_t, std::set<std::string>> expected;
    std::size_t streams = kFixedStreams;
    for (const auto& [pid, services] : played_) {
        streams += services.count(kNoService) == 0 ? 1 : 0;
        for (const auto& [service, sections] : services) {
            expected[pid].insert(sections.begin(), sections.end());
        }
    }
    EXPECT_EQ(the_muxer->streams.size(), streams);
    for (const auto& [pid, seen] : receiver_.pids()) {
        std::set<std::string> sections;
        for (const auto& [section, time_ns] : seen.sections) sections.insert(section);
        EXPECT_TRUE(pid == kTdtPid ? !sections.empty() : sections == expected[pid])
            << "PID " << pid;
        expected.erase(pid);
    }
    EXPECT_TRUE(expected.empty()) << "nothing on PID " << expected.begin()->first;
}
