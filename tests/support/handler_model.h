#ifndef KESTAN_TESTS_SUPPORT_HANDLER_MODEL_H
#define KESTAN_TESTS_SUPPORT_HANDLER_MODEL_H

#include <cstdint>
#include <map>
#include <optional>

#include "control/mux_control_handler.h"
#include "tests/support/receiver.h"
#include "tests/support/sections.h"

// A model of the handler: passes every call to a handler and knows from the handler's
// results which sections must be on air. An accepted table replaces the one
// before it; a service stays on its PID until it is stopped.
class HandlerModel final : public orvel::thrift::ci_module::cm_MuxControlSrvNull {
public:
    explicit HandlerModel(Receiver& receiver)
        : receiver_(receiver), handler_(std::in_place) {}

    std::int32_t NewPAT(const orvel::thrift::dvb_tables::PAT& pat) override;
    std::int32_t NewCAT(const orvel::thrift::dvb_tables::CAT& cat) override;
    std::int32_t NewSDTActual(const orvel::thrift::dvb_tables::SDT& sdt) override;
    std::int32_t NewPMT(const orvel::thrift::dvb_tables::PMT& pmt,
                        std::int16_t pid) override;
    void StopPMT(std::int16_t service_id, std::int16_t pid) override;
    void ClearCAT() override;
    void ClearAllTables() override;

    // Destroys the handler and makes a new one.
    void restart();

    // Fails the test unless the receiver has got exactly the sections of the model since
    // its last forget(), and the muxer has exactly their streams.
    void check() const;

private:
    template <typename Table>
    std::int32_t play(std::int32_t result, Table table, std::uint16_t pid, int service);
    std::optional<std::uint16_t> pid_of_service(int service) const;
    void end_pmt(std::uint16_t pid, int service);

    Receiver& receiver_;
    std::optional<cm_MuxControlSrvHandler> handler_;
    // The sections by PID and service. Those of PAT, CAT and SDT are under kNoService.
    std::map<std::uint16_t, std::map<int, Sections>> played_;
};

#endif
