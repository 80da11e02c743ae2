#ifndef KESTAN_TOOLS_KESTAN_MONITOR_STREAM_STATISTICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_STREAM_STATISTICS_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "tools/kestan-monitor/consistency_check.h"
#include "tools/kestan-monitor/fault_log.h"
#include "tools/kestan-monitor/pat_alternation.h"
#include "tools/kestan-monitor/peak_rate.h"
#include "tools/kestan-monitor/pid_record.h"
#include "tools/kestan-monitor/spread.h"
#include "tools/kestan-monitor/tdt_check.h"
#include "tools/receive/datagram_packets.h"

// Measures a transport stream from its datagrams and their times of arrival, and logs
// what is wrong with it.
//
// Tables are followed where they have to be: PAT, CAT, SDT actual and TDT on their PIDs,
// PMTs on the PIDs that the PAT gives, and on others that look as if they carried PMTs. A
// table is refreshed by a whole section that is in force and has a right CRC_32, not by
// any packet. From the first datagram on, PAT, SDT and TDT are expected; a service's PMT
// is from the PAT on that announces it. Of other PIDs, the packets and their continuity
// count.
//
// Times are nanoseconds of the steady clock; a datagram that is stamped before its
// predecessor counts as having come with it. Nothing is read from a clock or a socket
// here. One thread.
class StreamStatistics {
public:
    // The stream is expected from `start` on.
    explicit StreamStatistics(std::int64_t start);
    StreamStatistics(const StreamStatistics&) = delete;
    StreamStatistics& operator=(const StreamStatistics&) = delete;

    // The civil clock, and the greatest difference that the TDT may have from it; no
    // value if it must not be compared.
    void set_civil_clock(std::int64_t civil_minus_steady,
                         std::optional<std::int64_t> tolerance);

    // Is given each interval from a section to the next one with its number, but not of
    // PMTs that the PAT does not announce.
    using OnInterval = std::function<void(std::uint16_t pid, const TableKey&,
                                          std::int64_t now, std::int64_t interval)>;
    void set_interval_observer(OnInterval observer) {
        on_interval_ = std::move(observer);
    }

    // Takes the next datagram, `size` bytes of any content. Returns its packets; nullopt
    // if it is malformed.
    std::optional<DatagramPackets> push(std::int64_t arrival,
                                        const std::uint8_t* datagram, std::size_t size);

    // All datagrams up to `now` have been pushed: what has not come counts as waited for.
    // `lost` datagrams have been lost on this machine since the start.
    void advance(std::int64_t now, std::uint64_t lost);

    // The run is over. REQUIRES: advance() has been called with its end.
    void finish();

    [[nodiscard]] const FaultLog& faults() const { return faults_; }
    [[nodiscard]] const std::map<std::uint16_t, PidRecord>& pids() const { return pids_; }

    // Datagrams have come, and the last one not too long ago.
    [[nodiscard]] bool is_up() const { return start_.has_value() && !is_silent_; }

    // From the first datagram to the last advance().
    [[nodiscard]] std::int64_t duration() const { return start_ ? now_ - *start_ : 0; }
    [[nodiscard]] std::uint64_t datagrams() const { return datagrams_; }
    [[nodiscard]] std::uint64_t packets() const { return packets_; }
    [[nodiscard]] const Spread& packets_per_datagram() const { return sizes_; }
    [[nodiscard]] double peak_bit_rate() const { return peak_.value(); }
    [[nodiscard]] std::uint64_t lost_datagrams() const { return lost_; }
    [[nodiscard]] bool is_rtp() const { return is_rtp_; }

    // The tables on air at the last advance(), as far as they were complete.
    [[nodiscard]] const Multiplex& tables() const { return tables_; }

private:
    void begin(std::int64_t now);
    [[nodiscard]] std::int64_t longest_silence() const;
    void check_silence(std::int64_t now);
    PidRecord& pid(std::uint16_t number);
    void collect_tables(PidRecord& on);
    TableRecord* table(PidRecord& on, const TableKey& key);
    void push_packet(const std::uint8_t* packet);
    void push_to_collector(PidRecord& on, const std::uint8_t* packet);
    void on_section(PidRecord& on, const dvbpsi_psi_section_t& section);
    void check_announcement(PidRecord& on);
    void follow_pat();
    void withdraw_unannounced();

    std::optional<std::int64_t> start_;  // the first datagram
    std::int64_t now_;
    std::int64_t last_arrival_;
    bool is_silent_ = false;
    std::uint64_t datagrams_ = 0;
    std::uint64_t packets_ = 0;
    std::uint64_t lost_ = 0;
    Spread sizes_;
    PeakRate peak_;
    bool is_rtp_ = false;
    bool has_new_tables_ = false;
    Multiplex tables_;
    std::size_t unannounced_tables_ = 0;
    FaultLog faults_;
    TdtCheck tdt_check_{faults_};
    PatAlternation pat_alternation_{faults_};
    ConsistencyCheck consistency_{faults_};
    OnInterval on_interval_;
    std::map<std::uint16_t, PidRecord> pids_;
    std::set<std::pair<std::uint16_t, std::uint16_t>> announced_;  // PIDs, service_ids
};

#endif
