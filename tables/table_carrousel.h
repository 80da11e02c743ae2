#ifndef KESTAN_TABLES_TABLE_CARROUSEL_H
#define KESTAN_TABLES_TABLE_CARROUSEL_H

#include <cstdint>
#include <mutex>
#include <string>

#include <boost/intrusive/list.hpp>

#include "mux/muxed_stream.h"

// One table of a carrousel: whole packets back to back, never none while it is linked.
//
// A plain record; once it is in a carrousel, the carrousel owns it and guards it.
struct SubTable : boost::intrusive::list_base_hook<> {
    // Takes over the packets; eligible at once.
    SubTable(std::string&& table_packets, std::uint32_t table_period_ms);

    // Recomputes `bitrate` from the length of `packets` and the period.
    void update_bitrate();

    std::string packets;
    std::uint32_t index = 0;        // byte offset of the next packet
    std::uint32_t bitrate = 0;      // bit/s that the table needs; 0 when it has no period
    std::uint32_t period_ms;        // repetition period
    std::int64_t eligible_time_ns;  // slot time from which the table may be started again
};

// Plays several tables on one PID: the PMTs of the services that share a PMT PID.
//
// It sends at one steady rate, the sum of what its sub-tables need, and takes them in
// turn, those first whose repetition period has run out. It changes sub-table only where
// a section begins (payload_unit_start_indicator), so that a receiver gets whole
// sections; a sub-table left between two of its sections resumes there. It never waits
// for a sub-table to become eligible.
//
// Threads: next_packet runs on the pacing loop's thread, the rest on the control thread.
// `mutex` guards all members and every sub-table; packets are built before it is taken
// and freed after it has been released. A mutex that cannot be locked raises
// std::system_error.
class TableCarrousel final : public muxed_stream {
public:
    explicit TableCarrousel(std::uint16_t stream_pid) : muxed_stream(stream_pid) {}
    ~TableCarrousel() override;

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override;

    // Takes over a sub-table that is in no carrousel, behind the others; the first one is
    // due at once.
    void add_subtable(SubTable* sub);

    // Replaces the packets of a sub-table of this carrousel, which starts again from its
    // first packet and keeps its turn; with an empty string, removes and deletes it.
    // Leaves `new_packets` empty, holding the storage of the previous packets for the
    // caller to free. A sub-table that is in no carrousel is left alone.
    void update_subtable(SubTable* sub, std::string& new_packets);

private:
    using SubTables =
        boost::intrusive::list<SubTable, boost::intrusive::size_type<std::uint32_t>>;

    // Passes the turn from the head to the first sub-table after it that is eligible, or
    // to the one after it when none is.
    void move_on(std::int64_t slot_time_ns);

    void move_head_to_tail();
    void note_tail(const SubTable& sub);
    void wrap_head();
    void update_interval();

    // A ring, which begins with the sub-table being sent: `head`, which is end() in an
    // empty ring alone, and ends before it.
    SubTables sub_tables;
    SubTables::iterator head = sub_tables.end();

    // At least so many at the tail stand in the order of their eligible times, of which
    // none is later than `tail_eligible_ns`. With one period for all, all stand so after
    // a round: then the turn passes on without a search through what may be thousands.
    std::uint32_t in_order = 0;
    std::int64_t tail_eligible_ns = 0;
    std::uint32_t bitrate_sum = 0;  // of the sub-tables, bit/s
    std::uint64_t interval_ns = 0;  // of one packet at bitrate_sum; 0 without sub-tables
    std::int64_t next_time_ns = 0;  // slot time at which the next packet is due
    std::mutex mutex;
};

#endif
