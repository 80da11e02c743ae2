#ifndef KESTAN_TOOLS_RECEIVE_TABLE_COLLECTOR_H
#define KESTAN_TOOLS_RECEIVE_TABLE_COLLECTOR_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "dvb/libdvbpsi.h"
#include "dvb/ts_packet.h"
#include "tools/model/multiplex.h"

// Finds the PAT, the CAT, the SDT actual and the PMTs in a transport stream with
// libdvbpsi's decoders. A table counts as found when all sections of its version have
// come. Packets of other PIDs are skipped. One thread.
class TableCollector {
public:
    TableCollector();
    ~TableCollector();
    TableCollector(const TableCollector&) = delete;
    TableCollector& operator=(const TableCollector&) = delete;

    // Takes the stream's next packet, kTsPacketSize bytes.
    void push(const std::uint8_t* packet);

    // Returns the last PAT so far.
    [[nodiscard]] const std::optional<orvel::thrift::dvb_tables::PAT>& pat() const {
        return found_.pat;
    }

    // Returns what has been found so far: the PMTs in the order of the PAT, one for each
    // service.
    [[nodiscard]] Multiplex tables() const;

private:
    struct PmtDecoder;

    void on_pat(dvbpsi_pat_t* new_pat);
    static void on_sdt_subtable(dvbpsi_t* handle, std::uint8_t table_id,
                                std::uint16_t extension, void* self);

    template <auto Detach>
    struct DecoderDeleter {
        void operator()(dvbpsi_t* handle) const noexcept {
            if (dvbpsi_decoder_present(handle)) Detach(handle);
            dvbpsi_delete(handle);
        }
    };

    Multiplex found_;
    std::unique_ptr<dvbpsi_t, DecoderDeleter<dvbpsi_pat_detach>> pat_decoder_;
    std::unique_ptr<dvbpsi_t, DecoderDeleter<dvbpsi_cat_detach>> cat_decoder_;
    std::unique_ptr<dvbpsi_t, DecoderDeleter<dvbpsi_DetachDemux>> sdt_decoder_;
    std::multimap<std::uint16_t, std::unique_ptr<PmtDecoder>> pmt_decoders_;  // by PID
};

#endif
