#ifndef KESTAN_TESTS_SUPPORT_HANDLER_MODEL_H
#define KESTAN_TESTS_SUPPORT_HANDLER_MODEL_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "control/mux_control_handler.h"
#include "dvb/table_kind.h"
#include "mux/muxer.h"
#include "tests/support/receiver.h"
#include "tests/support/sections.h"

// A model of the handler: passes every call to a handler and knows from the handler's
// results which sections must be on air. An accepted table replaces the one
// before it; a service stays on its PID until it is stopped.
class HandlerModel final : public orvel::thrift::ci_module::cm_MuxControlSrvNull {
    using PAT = orvel::thrift::dvb_tables::PAT;
    using CAT = orvel::thrift::dvb_tables::CAT;
    using SDT = orvel::thrift::dvb_tables::SDT;
    using PMT = orvel::thrift::dvb_tables::PMT;

public:
    explicit HandlerModel(Receiver& receiver)
        : receiver_(receiver), handler_(std::in_place) {}

    std::int32_t NewPAT(const PAT& pat) override {
        return play(handler_->NewPAT(pat), pat, kPatPid);
    }
    std::int32_t NewCAT(const CAT& cat) override {
        return play(handler_->NewCAT(cat), cat, kCatPid);
    }
    std::int32_t NewSDTActual(const SDT& sdt) override {
        return play(handler_->NewSDTActual(sdt), sdt, kSdtPid);
    }
    std::int32_t NewPMT(const PMT& pmt, std::int16_t pid_bits) override {
        const std::int32_t result = handler_->NewPMT(pmt, pid_bits);
        const auto pid = static_cast<std::uint16_t>(pid_bits);
        const auto service = static_cast<std::uint16_t>(pmt.program_number);
        const bool is_elsewhere = pid_of_service(service).value_or(pid) != pid;
        return is_elsewhere ? result : play(result, pmt, pid, service);
    }
    void StopPMT(std::int16_t service_id, std::int16_t pid_bits) override {
        handler_->StopPMT(service_id, pid_bits);
        const auto service = static_cast<std::uint16_t>(service_id);
        const auto pid = pid_of_service(service);
        if (!pid) return;
        played_[*pid].erase(service);
        if (!played_[*pid].empty()) return;
        played_.erase(*pid);
        receiver_.end_stream(*pid);
    }
    void ClearCAT() override {
        handler_->ClearCAT();
        played_.erase(kCatPid);
    }
    void ClearAllTables() override {
        handler_->ClearAllTables();
        for (const auto& [pid, services] : std::exchange(played_, {})) {
            if (services.count(kNoService) == 0) receiver_.end_stream(pid);
        }
    }

    // Destroys the handler and makes a new one.
    void restart() {
        handler_.reset();
        EXPECT_EQ(the_muxer->streams.size(), 0u);
        handler_.emplace();
        played_.clear();
        receiver_ = Receiver();
    }

    // Fails the test unless the receiver has got exactly the sections of the model since
    // its last forget(), and the muxer has exactly their streams.
    void check() const {
        std::map<std::uint16_t, std::set<std::string>> expected;
        std::size_t streams = 4;  // with a fixed PID
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

private:
    static constexpr int kNoService = -1;

    // Notes a table that the handler has accepted.
    template <typename Table>
    std::int32_t play(std::int32_t result, Table table, std::uint16_t pid,
                      int service = kNoService) {
        if (result < 0) return result;
        table.version_number = result;
        played_[pid][service] = sections_of(table);
        return result;
    }

    [[nodiscard]] std::optional<std::uint16_t> pid_of_service(int service) const {
        for (const auto& [pid, services] : played_) {
            if (services.count(service) != 0) return pid;
        }
        return std::nullopt;
    }

    Receiver& receiver_;
    std::optional<cm_MuxControlSrvHandler> handler_;
    // The sections by PID and service. Those of PAT, CAT and SDT are under kNoService.
    std::map<std::uint16_t, std::map<int, Sections>> played_;
};

#endif
