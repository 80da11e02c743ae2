#ifndef KESTAN_CONTROL_MUX_CONTROL_HANDLER_H
#define KESTAN_CONTROL_MUX_CONTROL_HANDLER_H

#include <cstdint>
#include <memory>
#include <string>

#include "control/pmt_data.h"
#include "tables/simple_table.h"
#include "tables/tdt_table.h"
#include "thrift/cm_MuxControlSrv.h"

// The control service: owns every table stream and does what the control process asks.
//
// The PAT, CAT, TDT and SDT streams live as long as the handler and are registered with
// the muxer in that order; PMTs play in one carrousel per PID, which exists as long as a
// service uses the PID.
//
// The New methods convert a table, cut it into packets and swap these into its stream.
// They return the version_number played, or -1, without a log line, for a table that
// cannot be carried, which leaves the stream as it is; a version_number above 31 is
// played as 0. The version of the table played before does not matter: the same table
// sent again starts anew.
//
// Threads: made, called and destroyed on the control thread, one call at a time; it has
// no lock of its own. Tables are built, and freed, outside the locks of the streams, at
// most one of which is held at a time. A mutex that cannot be locked raises
// std::system_error. Then a PMT is played as before the call or as after it.
class cm_MuxControlSrvHandler final
    : public virtual orvel::thrift::ci_module::cm_MuxControlSrvIf {
public:
    // The muxer must exist. When a stream cannot be registered, none stays so.
    cm_MuxControlSrvHandler();
    ~cm_MuxControlSrvHandler() override;
    cm_MuxControlSrvHandler(const cm_MuxControlSrvHandler&) = delete;
    cm_MuxControlSrvHandler& operator=(const cm_MuxControlSrvHandler&) = delete;

    // Withdraws every table, one after the other; the TDT plays on.
    void ClearAllTables() override;

    std::int32_t NewPAT(const orvel::thrift::dvb_tables::PAT& pat) override;
    std::int32_t NewCAT(const orvel::thrift::dvb_tables::CAT& cat) override;
    void ClearCAT() override;
    std::int32_t NewSDTActual(const orvel::thrift::dvb_tables::SDT& sdt) override;

    // Plays the PMT of the service that it names on `pid`, 16 bits taken as unsigned;
    // above 0x1FFF the result is -1. A service that plays on another PID stays as it is,
    // with the version_number as the result: StopPMT comes first when a service is to
    // move.
    std::int32_t NewPMT(const orvel::thrift::dvb_tables::PMT& pmt,
                        std::int16_t pid) override;

    // Withdraws the service's PMT from whatever PID it is on; `pid` is only logged.
    void StopPMT(std::int16_t service_id, std::int16_t pid) override;

    // Accepted, without effect.
    void newScramblingConfig(
        const orvel::thrift::ci_module::ScramblingConfig& config) override;
    void EMM(const orvel::thrift::ci_module::EMMData& emm) override;

private:
    void unregister_fixed_streams();

    // Null when the service has no PMT.
    pmt_data* find_service(std::uint16_t service_id);

    // The carrousel of `pid`; a new one is registered at once.
    std::shared_ptr<TableCarrousel> carrousel_of(std::uint16_t pid);

    // Plays `packets` as the PMT of a service that has none yet.
    void add_pmt(std::uint16_t service_id, std::uint16_t pid, std::string&& packets);

    // Withdraws the record's PMT and frees the record. The last record of a PID takes the
    // carrousel off the muxer before it frees it.
    void release_pmt(pmt_data& record);
    void release_all_pmts();

    SimpleTable pat_stream_;
    SimpleTable cat_stream_;
    TDTTable tdt_stream_;
    SimpleTable sdt_stream_;
    pmt_list pmt_list_;
    pmts_by_service services_;
    pmts_by_pid pids_;
};

#endif
