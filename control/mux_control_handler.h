#ifndef KESTAN_CONTROL_MUX_CONTROL_HANDLER_H
#define KESTAN_CONTROL_MUX_CONTROL_HANDLER_H

#include <cstdint>
#include <memory>
#include <string>

#include "control/pmt_data.h"
#include "tables/simple_table.h"
#include "tables/tdt_table.h"
#include "thrift/cm_MuxControlSrv.h"

// The control service: owns all table streams and does what the control process asks.
//
// The PAT, CAT, TDT and SDT streams live as long as the handler and are registered with
// the muxer in that order. PMTs play in one carrousel per PID, which exists as long as a
// service uses the PID.
//
// The New methods convert a table, cut it into packets and swap the packets into its
// stream. They return the version_number that is played: a version_number above 31 is
// played as 0. If the table cannot be carried, the converter logs the reason. Then they
// log nothing, return -1, and the stream stays as it is. They do not compare versions:
// the same table sent again starts from its first packet.
//
// Threads: created, called and destroyed on the control thread, one call at a time, so it
// has no lock. Tables are built and freed outside the locks of the streams, and at most
// one of these locks is held at a time. Throws std::system_error if a mutex cannot be
// locked. Then a PMT plays either as before the call or as after it. If memory is
// exhausted in a New method, logs this and throws std::bad_alloc, which Thrift answers
// with an error; the stream stays as it is.
class cm_MuxControlSrvHandler final
    : public virtual orvel::thrift::ci_module::cm_MuxControlSrvIf {
public:
    // REQUIRES: the muxer exists. If a stream cannot be registered, the others are
    // unregistered again.
    cm_MuxControlSrvHandler();

    // Ends the process if a mutex cannot be locked.
    ~cm_MuxControlSrvHandler() override;
    cm_MuxControlSrvHandler(const cm_MuxControlSrvHandler&) = delete;
    cm_MuxControlSrvHandler& operator=(const cm_MuxControlSrvHandler&) = delete;

    // Withdraws all tables, one after the other. The TDT plays on.
    void ClearAllTables() override;

    std::int32_t NewPAT(const orvel::thrift::dvb_tables::PAT& pat) override;
    std::int32_t NewCAT(const orvel::thrift::dvb_tables::CAT& cat) override;
    void ClearCAT() override;
    std::int32_t NewSDTActual(const orvel::thrift::dvb_tables::SDT& sdt) override;

    // Plays the PMT of its service on `pid`, which is taken as unsigned. Logs the reason
    // and returns -1 if `pid` is above 0x1FFF. If the service plays on another PID,
    // changes nothing and returns the version_number: call StopPMT before a service
    // moves.
    std::int32_t NewPMT(const orvel::thrift::dvb_tables::PMT& pmt,
                        std::int16_t pid) override;

    // Withdraws the service's PMT. `pid` is only logged.
    void StopPMT(std::int16_t service_id, std::int16_t pid) override;

    // Both are accepted and have no effect.
    void newScramblingConfig(
        const orvel::thrift::ci_module::ScramblingConfig& config) override;
    void EMM(const orvel::thrift::ci_module::EMMData& emm) override;

private:
    void unregister_fixed_streams();

    // Returns null if the service has no PMT.
    pmt_data* find_service(std::uint16_t service_id);

    // Returns the carrousel of `pid`. A new one is on the muxer as long as it exists.
    std::shared_ptr<TableCarrousel> carrousel_of(std::uint16_t pid);

    // Plays `packets` as the PMT of a service. REQUIRES: the service has no PMT.
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
