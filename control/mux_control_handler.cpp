#include "control/mux_control_handler.h"

#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "dvb/libdvbpsi.h"
#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"
#include "dvb/table_kind.h"
#include "framework/log.h"
#include "framework/table_converters.h"
#include "mux/muxer.h"
#include "tables/table_packets.h"

using namespace orvel::thrift::dvb_tables;

namespace {

constexpr std::uint32_t kPmtPeriodMs = table_info(TableKind::kPmt).period_ns / kNsPerMs;

constexpr std::int32_t kRejected = -1;

void apply_version_rule(std::uint8_t& version) {
    if (version > kMaxVersionNumber) version = 0;
}

// Makes the stream of a table that has a fixed PID.
SimpleTable stream_of(TableKind kind) {
    const TableInfo& table = table_info(kind);
    return {table.pid.value(), table.period_ns};
}

// Takes a carrousel off the muxer and frees it. If the muxer's mutex cannot be locked,
// the carrousel is leaked on purpose: it can still be on the muxer. It has no sub-table,
// so it plays nothing.
void remove_and_delete(TableCarrousel* carrousel) noexcept {
    try {
        muxer_remove(*carrousel);
    } catch (const std::system_error&) {
        return;
    }
    delete carrousel;
}

void play(SimpleTable& stream, std::string packets) {
    if (!packets.empty()) stream.replace_packets(packets);
}

void log_exhaustion(const char* method) {
    log_function(kLogError, 0, "%s: out of memory, the table before it plays on", method);
}

}  // namespace

cm_MuxControlSrvHandler::cm_MuxControlSrvHandler()
    : pat_stream_(stream_of(TableKind::kPat)),
      cat_stream_(stream_of(TableKind::kCat)),
      sdt_stream_(stream_of(TableKind::kSdt)) {
    try {
        muxer_add(pat_stream_);
        muxer_add(cat_stream_);
        muxer_add(tdt_stream_);
        muxer_add(sdt_stream_);
    } catch (...) {
        unregister_fixed_streams();
        throw;
    }
}

cm_MuxControlSrvHandler::~cm_MuxControlSrvHandler() {
    unregister_fixed_streams();
    release_all_pmts();
}

void cm_MuxControlSrvHandler::unregister_fixed_streams() {
    muxer_remove(pat_stream_);
    muxer_remove(cat_stream_);
    muxer_remove(tdt_stream_);
    muxer_remove(sdt_stream_);
}

void cm_MuxControlSrvHandler::ClearAllTables() {
    log_function(kLogInformation, 0, "Clearing all tables");
    pat_stream_.clear();
    cat_stream_.clear();
    sdt_stream_.clear();
    release_all_pmts();
}

std::int32_t cm_MuxControlSrvHandler::NewPAT(const PAT& pat) try {
    const PatPtr table(t2dPAT(pat));
    if (!table) return kRejected;
    apply_version_rule(table->i_version);
    log_function(kLogInformation, 0, "New PAT tsid=%04x version=%u", table->i_ts_id,
                 table->i_version);
    play(pat_stream_, table_packets(*table, kPatPid));
    return table->i_version;
} catch (const std::bad_alloc&) {
    log_exhaustion("NewPAT");
    throw;
}

std::int32_t cm_MuxControlSrvHandler::NewCAT(const CAT& cat) try {
    const CatPtr table(t2dCAT(cat));
    if (!table) return kRejected;
    apply_version_rule(table->i_version);
    log_function(kLogInformation, 0, "New CAT version=%u", table->i_version);
    play(cat_stream_, table_packets(*table, kCatPid));
    return table->i_version;
} catch (const std::bad_alloc&) {
    log_exhaustion("NewCAT");
    throw;
}

void cm_MuxControlSrvHandler::ClearCAT() {
    log_function(kLogInformation, 0, "Clear CAT");
    cat_stream_.clear();
}

std::int32_t cm_MuxControlSrvHandler::NewSDTActual(const SDT& sdt) try {
    const SdtPtr table(t2dSDT(sdt));
    if (!table) return kRejected;
    apply_version_rule(table->i_version);
    log_function(kLogInformation, 0, "New SDTact tsid=%04x onid=%04x version=%u",
                 table->i_extension, table->i_network_id, table->i_version);
    play(sdt_stream_, table_packets(*table, kSdtPid));
    return table->i_version;
} catch (const std::bad_alloc&) {
    log_exhaustion("NewSDTActual");
    throw;
}

std::int32_t cm_MuxControlSrvHandler::NewPMT(const PMT& pmt, std::int16_t pid) try {
    const auto pmt_pid = static_cast<std::uint16_t>(pid);
    if (pmt_pid > kMaxPid) {
        log_function(kLogWarning, 0, "PMT of service %d: pid is %u, 0 to %u fit",
                     pmt.program_number, pmt_pid, kMaxPid);
        return kRejected;
    }
    const PmtPtr table(t2dPMT(pmt));
    if (!table) return kRejected;
    apply_version_rule(table->i_version);
    log_function(kLogInformation, 0, "New PMT sid=%04x pid=%04x version=%u",
                 table->i_program_number, pmt_pid, table->i_version);
    std::string packets = table_packets(*table, pmt_pid);
    if (packets.empty()) return table->i_version;

    const auto service_id = static_cast<std::uint16_t>(pmt.program_number);
    pmt_data* const record = find_service(service_id);
    if (record == nullptr) {
        add_pmt(service_id, pmt_pid, std::move(packets));
    } else if (record->pid == pmt_pid) {
        record->carrousel->update_subtable(record->sub_table, packets);
    }
    return table->i_version;
} catch (const std::bad_alloc&) {
    log_exhaustion("NewPMT");
    throw;
}

void cm_MuxControlSrvHandler::add_pmt(std::uint16_t service_id, std::uint16_t pid,
                                      std::string&& packets) {
    auto record = std::make_unique<pmt_data>(service_id, pid);
    auto sub_table = std::make_unique<SubTable>(std::move(packets), kPmtPeriodMs);
    record->carrousel = carrousel_of(pid);
    record->carrousel->add_subtable(sub_table.get());
    record->sub_table = sub_table.release();
    services_.insert(*record);
    pids_.insert(*record);
    pmt_list_.push_back(*record.release());
}

std::shared_ptr<TableCarrousel> cm_MuxControlSrvHandler::carrousel_of(std::uint16_t pid) {
    const auto found = pids_.find(pid);
    if (found != pids_.end()) return found->carrousel;
    std::shared_ptr<TableCarrousel> carrousel(new TableCarrousel(pid), remove_and_delete);
    muxer_add(*carrousel);
    return carrousel;
}

pmt_data* cm_MuxControlSrvHandler::find_service(std::uint16_t service_id) {
    const auto found = services_.find(service_id);
    return found == services_.end() ? nullptr : &*found;
}

void cm_MuxControlSrvHandler::StopPMT(std::int16_t service_id, std::int16_t pid) {
    const auto service = static_cast<std::uint16_t>(service_id);
    log_function(kLogInformation, 0, "Clear PMT %04x on PID %04x", service,
                 static_cast<std::uint16_t>(pid));
    pmt_data* const record = find_service(service);
    if (record != nullptr) release_pmt(*record);
}

void cm_MuxControlSrvHandler::release_pmt(pmt_data& record) {
    std::string none;
    record.carrousel->update_subtable(record.sub_table, none);
    const std::unique_ptr<pmt_data> owner(&record);
    pmt_list_.erase(pmt_list_.iterator_to(record));
    services_.erase(services_.iterator_to(record));
    pids_.erase(pids_.iterator_to(record));
    // The deleter cannot report a failure, so the last record takes the carrousel off
    // here.
    if (pids_.find(record.pid) == pids_.end()) muxer_remove(*record.carrousel);
}

void cm_MuxControlSrvHandler::release_all_pmts() {
    while (!pmt_list_.empty()) release_pmt(pmt_list_.front());
}

void cm_MuxControlSrvHandler::newScramblingConfig(
    const orvel::thrift::ci_module::ScramblingConfig& /*config*/) {}

void cm_MuxControlSrvHandler::EMM(const orvel::thrift::ci_module::EMMData& /*emm*/) {}
