#ifndef KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_STREAM_STATISTICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_MEASURE_STREAM_STATISTICS_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/kestan-monitor/measure/cat_check.h"
#include "tools/kestan-monitor/measure/consistency_check.h"
#include "tools/kestan-monitor/measure/expected_check.h"
#include "tools/kestan-monitor/measure/fault_log.h"
#include "tools/kestan-monitor/measure/pat_alternation.h"
#include "tools/kestan-monitor/measure/peak_rate.h"
#include "tools/kestan-monitor/measure/pid_record.h"
#include "tools/kestan-monitor/measure/rtp_sequence_check.h"
#include "tools/kestan-monitor/measure/series.h"
#include "tools/kestan-monitor/measure/tdt_check.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/datagram_packets.h"
#include "tools/receive/section_assembler.h"

// Measures a transport stream from its datagrams and their times of arrival, and logs
// what is wrong with it.
//
// It follows PAT, CAT, SDT actual and TDT on their PIDs, and PMTs on the PIDs that the
// PAT announces and on others that seem to carry PMTs. Only a valid section that is in
// force refreshes a table. From the first datagram on, PAT, SDT and TDT are expected; a
// service's PMT is expected once the PAT announces it. On other PIDs, only the packets
// and their continuity errors are counted.
//
// A PAT that has changed is followed at once, but once a second at most. Until then, a
// PMT that does not come or is not announced is no fault.
//
// Times are nanoseconds of the steady clock; a datagram with an earlier time than its
// predecessor gets the time of the predecessor. The class reads no clock and no socket.
// One thread.
class StreamStatistics {
public:
    // Expects the stream from `start` on.
    explicit StreamStatistics(std::int64_t start);
    StreamStatistics(const StreamStatistics&) = delete;
    StreamStatistics& operator=(const StreamStatistics&) = delete;

    // Sets the civil clock, and the greatest difference that the TDT may have from it. No
    // value means that they are not compared.
    void set_civil_clock(std::int64_t civil_minus_steady,
                         std::optional<std::int64_t> tolerance);

    // Does not count these faults as such. REQUIRES: push() has not been called.
    void accept(std::vector<AcceptedFault> faults) { faults_.accept(std::move(faults)); }

    // Compares the tables with those of files from the next advance() on.
    void expect(Multiplex files, bool compares_versions) {
        expected_.expect(std::move(files), compares_versions);
    }

    // Keeps series from the start on, for series(). Without this call there are none.
    // REQUIRES: push() has not been called.
    void keep_series() { series_ = StreamSeries{now_}; }

    // Takes the next datagram, `size` bytes of any content. Returns its packets; nullopt
    // if it is malformed.
    std::optional<DatagramPackets> push(std::int64_t arrival,
                                        const std::uint8_t* datagram, std::size_t size);

    // Advances the time to `now`: tables that have not come count as waited for. `lost`
    // is the number of datagrams lost on this machine since the start. REQUIRES: all
    // datagrams up to `now` have been pushed.
    void advance(std::int64_t now, std::uint64_t lost);

    // Advances the time to the end of the run, in the same way.
    void finish(std::int64_t now, std::uint64_t lost);

    [[nodiscard]] const FaultLog& faults() const { return faults_; }
    [[nodiscard]] const PidRecords& pids() const { return pids_; }

    // Returns whether datagrams have come, and the last one not too long ago.
    [[nodiscard]] bool is_up() const { return start_.has_value() && !is_silent_; }

    [[nodiscard]] std::int64_t now() const { return now_; }

    // Returns the time from the first datagram to the last advance().
    [[nodiscard]] std::int64_t duration() const { return start_ ? now_ - *start_ : 0; }
    [[nodiscard]] std::uint64_t datagrams() const { return datagrams_; }
    [[nodiscard]] std::uint64_t packets() const {
        return static_cast<std::uint64_t>(sizes_.sum);
    }
    [[nodiscard]] const Spread& packets_per_datagram() const { return sizes_; }
    [[nodiscard]] double peak_bit_rate() const { return peak_.value(); }
    [[nodiscard]] std::uint64_t lost_datagrams() const { return lost_; }
    [[nodiscard]] bool is_rtp() const { return is_rtp_; }

    // Returns the names in the SDT that was on air and complete at the last advance(), by
    // service_id.
    [[nodiscard]] const std::map<std::uint16_t, std::string>& service_names() const {
        return service_names_;
    }

    // Returns the series from the start on, without intervals of PMTs that the PAT did
    // not announce at the time. REQUIRES: keep_series() has been called.
    [[nodiscard]] const StreamSeries& series() const { return *series_; }

    // Returns how many differences from the files count now. Returns nullopt without
    // files, and while the stream is down.
    [[nodiscard]] std::optional<std::size_t> expected_differences() const {
        return expected_.differences();
    }

private:
    // A PID whose packets are followed.
    struct Pid {
        explicit Pid(PidRecord& its_record) : record(its_record) {}

        PidRecord& record;  // in pids_
        ContinuityCheck continuity;
        std::optional<SectionAssembler> assembler;  // no value: it carries no tables

        // Whether only tables belong here: the PID has a fixed use, or the PAT announces
        // a PMT on it.
        bool has_to_carry_tables = false;

        // The time since which it has carried PMTs without an announcement in the PAT.
        std::optional<std::int64_t> unannounced_since;
    };

    void begin();
    void check_silence();
    Pid& find_or_add(std::uint16_t number);
    Pid& expect_tables(std::uint16_t number);
    void assemble_sections(Pid& pid);
    [[nodiscard]] bool is_unannounced(std::uint16_t pid, const TableKey& key) const;
    TableRecord* find_or_add(PidRecord& pid, const TableKey& key);
    void push_packet(const std::uint8_t* packet);
    void replace_tables();
    void on_section(Pid& pid, const Section& section, std::int64_t begun);
    void check_announcement(Pid& pid);
    void follow_pat();
    void withdraw_unannounced(std::int64_t since);

    std::optional<std::int64_t> start_;  // the first datagram
    std::int64_t now_;
    std::int64_t last_arrival_;
    std::optional<std::int64_t> least_limit_;  // of the tables that have come
    bool is_silent_ = false;
    std::uint64_t datagrams_ = 0;
    std::uint64_t lost_ = 0;
    Spread sizes_;  // of the datagrams, in packets
    PeakRate peak_;
    bool is_rtp_ = false;
    bool has_new_tables_ = false;
    std::map<std::uint16_t, std::string> service_names_;
    std::size_t unannounced_tables_ = 0;
    FaultLog faults_;
    TdtCheck tdt_check_{faults_};
    PatAlternation pat_alternation_{faults_};
    ConsistencyCheck consistency_{faults_};
    ExpectedCheck expected_{faults_};
    CatCheck cat_check_{faults_};
    RtpSequenceCheck rtp_sequence_{faults_};
    std::set<std::uint16_t> streams_;  // PIDs of the PMTs' streams
    std::optional<StreamSeries> series_;
    PidRecords pids_;
    std::map<std::uint16_t, Pid> followed_;
    std::set<std::pair<std::uint16_t, std::uint16_t>> announced_;  // PIDs, service_ids
    std::optional<std::int64_t> pat_followed_;                     // when
    std::optional<std::int64_t> pat_changed_;  // when, and it has not been followed since
};

#endif
