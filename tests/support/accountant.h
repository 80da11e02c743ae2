#ifndef KESTAN_TESTS_SUPPORT_ACCOUNTANT_H
#define KESTAN_TESTS_SUPPORT_ACCOUNTANT_H

#include <cstdint>
#include <map>
#include <optional>

#include "control/mux_control_handler.h"
#include "tests/support/wire.h"

// A control service that hands every call on to a handler of its own and keeps account of
// what must be on the wire after it, going by the handler's results: a table that was
// accepted replaces the one before it, and a service stays on its PID until it is
// stopped. Tells the wire which breaks a receiver has to expect.
class Accountant final : public orvel::thrift::ci_module::cm_MuxControlSrvNull {
public:
    explicit Accountant(Wire& wire) : wire_(wire), handler_(std::in_place) {}

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

    // Fails the test unless the wire has carried just the tables that must be there since
    // its last forget(), and the muxer has just their streams.
    void check() const;

private:
    template <typename Table, typename Kept>
    std::int32_t keep(std::int32_t result, Table table, Kept& kept, std::uint16_t pid);
    void forget_pmt(std::uint16_t service);
    void forget_everything();

    Wire& wire_;
    std::optional<cm_MuxControlSrvHandler> handler_;
    Multiplex played_;                        // but for the PMTs, which are
    std::map<std::uint16_t, PmtOnPid> pmts_;  // by service
};

#endif
