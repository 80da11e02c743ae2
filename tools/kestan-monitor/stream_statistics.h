#ifndef KESTAN_TOOLS_KESTAN_MONITOR_STREAM_STATISTICS_H
#define KESTAN_TOOLS_KESTAN_MONITOR_STREAM_STATISTICS_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/kestan-monitor/repetition.h"
#include "tools/kestan-monitor/stream_figures.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/section_collector.h"
#include "tools/receive/table_collector.h"

// The length of the sliding window of the peak bit rate: a datagram counts in full from
// its arrival on, and no more when it is as old as this.
constexpr std::int64_t kPeakWindowNs = 100000000;

// Measures a transport stream from its datagrams and their times of arrival.
//
// Tables are followed where they must be: PAT, CAT, SDT actual and TDT on their PIDs,
// PMTs on the PIDs that the PAT gives. A table is refreshed by a whole section that is in
// force and has a right CRC_32, not by any packet. From the first datagram on, PAT, SDT
// and TDT are expected; a service's PMT is from the PAT on that announces it. Of other
// PIDs, the packets and their continuity count.
//
// Times are nanoseconds of any one clock; a datagram that is stamped before its
// predecessor counts as having come with it. Nothing is read from a clock or a socket
// here. One thread.
class StreamStatistics {
public:
    StreamStatistics();
    ~StreamStatistics();
    StreamStatistics(const StreamStatistics&) = delete;
    StreamStatistics& operator=(const StreamStatistics&) = delete;

    // Takes the next datagram, `size` bytes of any content.
    void push(std::int64_t arrival, const std::uint8_t* datagram, std::size_t size);

    // The figures at `now`, at or after the last arrival: what has not come by then
    // counts as waited for.
    [[nodiscard]] StreamFigures figures(std::int64_t now) const;

private:
    struct Table {
        Repetition repetition;
        std::uint64_t sections = 0;
        std::optional<std::uint8_t> version;
        std::map<std::uint8_t, std::uint32_t> crcs;  // of the version, by section_number
        std::uint64_t unversioned_changes = 0;
        std::string utc;
        std::optional<std::int64_t> last_end;  // of a section
        Spread section_gaps;
    };

    struct Pid {
        std::uint16_t number = 0;
        std::uint64_t packets = 0;
        ContinuityCheck continuity;
        std::unique_ptr<SectionCollector> collector;  // null unless it carries tables
        std::int64_t section_start = 0;               // of the section being collected
        std::uint64_t wrong_table_ids = 0;
        std::map<std::pair<TableKind, std::uint16_t>, Table> tables;  // by service_id
    };

    void begin(std::int64_t now);
    Pid& pid(std::uint16_t number);
    Pid& table_pid(std::uint16_t number);
    void push_packet(const std::uint8_t* packet);
    void on_section(Pid& on, const dvbpsi_psi_section_t& section);
    // Takes note of the version; returns whether the content has changed without it.
    static bool changes_unversioned(Table& table, const dvbpsi_psi_section_t& section);
    void follow_pat();
    static TableFigures figures_of(TableKind kind, std::uint16_t service_id,
                                   const Table& table, std::int64_t now);
    void count_in_peak(std::size_t packets);

    std::optional<std::int64_t> start_;
    std::int64_t now_ = 0;
    StreamFigures totals_;
    std::map<std::uint16_t, Pid> pids_;
    std::optional<TableCollector> pat_collector_;        // is given the PAT's PID alone
    std::optional<orvel::thrift::dvb_tables::PAT> pat_;  // the one in force
    std::deque<std::pair<std::int64_t, std::size_t>>
        window_;  // arrivals and their packets
    std::size_t window_packets_ = 0;
    std::size_t peak_packets_ = 0;
};

#endif
