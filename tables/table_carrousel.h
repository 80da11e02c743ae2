#ifndef KESTAN_TABLES_TABLE_CARROUSEL_H
#define KESTAN_TABLES_TABLE_CARROUSEL_H

#include <cstdint>
#include <mutex>
#include <string>

#include <boost/intrusive/list.hpp>

#include "mux/muxed_stream.h"

// One table of a carrousel: whole packets back to back, at least one while it is linked.
//
// A plain record. A linked sub-table belongs to its carrousel, which guards it.
struct SubTable : boost::intrusive::list_base_hook<> {
    // Takes the packets. The sub-table is eligible at once.
    SubTable(std::string&& table_packets, std::uint32_t table_period_ms);

    // Recomputes `bitrate` from the length of `packets` and the period.
    void update_bitrate();

    std::string packets;
    std::uint32_t index = 0;        // byte offset of the next packet
    std::uint32_t bitrate = 0;      // bit/s that the table needs; 0 if the period is 0
    std::uint32_t period_ms;        // repetition period
    std::int64_t eligible_time_ns;  // slot time from which the table may start again
};

// Plays several tables on one PID: the PMTs of the services that share a PMT PID.
//
// It sends at one steady rate: the sum of the rates that its sub-tables need. It plays
// the sub-tables in turn and prefers those whose repetition period is over. It never
// waits until a sub-table is eligible. It changes to another sub-table only where a
// section begins (payload_unit_start_indicator), so receivers get whole sections. A
// sub-table that was left between two sections resumes there.
//
// Threads: next_packet runs on the pacing loop's thread, the rest on the control thread.
// `mutex` guards all members and every sub-table. Packets are built before it is taken
// and freed after it has been released. Throws std::system_error if it cannot be locked.
class TableCarrousel final : public muxed_stream {
public:
    explicit TableCarrousel(std::uint16_t stream_pid) : muxed_stream(stream_pid) {}
    ~TableCarrousel() override;

    bool next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) override;

    // Appends `sub` and owns it. The first sub-table is due at once. REQUIRES: `sub` is
    // unlinked.
    void add_subtable(SubTable* sub);

    // Replaces the packets of `sub`, which keeps its turn and starts again from its first
    // packet. An empty string removes and deletes `sub`. Leaves `new_packets` empty with
    // the storage of the previous packets, and the caller frees it. Does nothing if `sub`
    // is unlinked. REQUIRES: `sub` is not in another carrousel.
    void update_subtable(SubTable* sub, std::string& new_packets);

private:
    using SubTables =
        boost::intrusive::list<SubTable, boost::intrusive::size_type<std::uint32_t>>;

    // Advances the head to the next sub-table that is eligible, or by one if none is.
    void choose_next(std::int64_t slot_time_ns);

    // Makes the head the last of the ring.
    void advance_head();

    // Updates `sorted_tail` for a sub-table that has become the last of the ring.
    void extend_sorted_tail(const SubTable& last);

    void wrap_head();
    void update_interval();

    // A ring: it begins at `head`, the sub-table being sent, and ends before it. `head`
    // is end() only if the ring is empty.
    SubTables sub_tables;
    SubTables::iterator head = sub_tables.end();

    // The last `sorted_tail` sub-tables are sorted by eligible time, and none of them is
    // eligible later than `tail_eligible_ns`. If all sub-tables have the same period and
    // one section each, all are sorted after one round. Then choose_next need not search
    // a ring of thousands.
    std::uint32_t sorted_tail = 0;
    std::int64_t tail_eligible_ns = 0;
    std::uint32_t bitrate_sum = 0;  // of the sub-tables, bit/s
    std::uint64_t interval_ns = 0;  // of one packet at bitrate_sum; 0 without sub-tables
    std::int64_t next_time_ns = 0;  // slot time at which the next packet is due
    std::mutex mutex;
};

#endif
