#include "tables/table_carrousel.h"

#include <algorithm>
#include <memory>
#include <system_error>

#include "dvb/nanoseconds.h"

SubTable::SubTable(std::string&& table_packets, std::uint32_t table_period_ms)
    : packets(std::move(table_packets)),
      period_ms(table_period_ms),
      eligible_time_ns(steady_now_ns()) {
    update_bitrate();
}

void SubTable::update_bitrate() {
    constexpr std::uint32_t bits_per_byte_and_ms = 8 * 1000;
    const auto length = static_cast<std::uint32_t>(packets.size());
    bitrate =
        period_ms == 0 ? 0 : (period_ms + bits_per_byte_and_ms * length) / period_ms;
}

TableCarrousel::~TableCarrousel() {
    const auto destroy = [](SubTable* sub) { delete sub; };
    try {
        const std::lock_guard lock(mutex);
        sub_tables.clear_and_dispose(destroy);
    } catch (const std::system_error&) {
        // Leaked on purpose: the thread that holds the mutex may still use them.
        sub_tables.clear();
    }
}

// The functions down to choose_next are inline: a packet costs 10 ns, a call 1 ns.
inline void TableCarrousel::extend_sorted_tail(const SubTable& last) {
    if (last.eligible_time_ns < tail_eligible_ns) sorted_tail = 0;
    if (sorted_tail < sub_tables.size()) ++sorted_tail;
    tail_eligible_ns = last.eligible_time_ns;
}

inline void TableCarrousel::wrap_head() {
    if (head == sub_tables.end()) head = sub_tables.begin();
}

inline void TableCarrousel::advance_head() {
    extend_sorted_tail(*head);
    ++head;
    wrap_head();
}

inline void TableCarrousel::choose_next(std::int64_t slot_time_ns) {
    advance_head();
    if (sorted_tail == sub_tables.size()) return;  // no other is eligible before the head
    for (std::uint32_t moves = 1; moves < sub_tables.size(); ++moves) {
        if (slot_time_ns >= head->eligible_time_ns) return;
        advance_head();
    }
    if (slot_time_ns < head->eligible_time_ns) advance_head();
}

bool TableCarrousel::next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) {
    const std::lock_guard lock(mutex);
    if (head == sub_tables.end()) return false;
    if (slot_time_ns < next_time_ns) return false;
    next_time_ns += static_cast<std::int64_t>(interval_ns);

    SubTable& cur = *head;
    hand_out(cur.packets.data() + cur.index, dst);
    cur.index += kTsPacketSize;
    const bool is_whole = cur.index >= cur.packets.size();
    if (is_whole) {
        cur.index = 0;
        cur.eligible_time_ns = slot_time_ns + cur.period_ms * kNsPerMs;
    }
    if (is_whole || (cur.packets[cur.index + 1] & kPayloadUnitStart) != 0) {
        choose_next(slot_time_ns);
    }
    return true;
}

void TableCarrousel::add_subtable(SubTable* sub) {
    const std::lock_guard lock(mutex);
    sub_tables.insert(head, *sub);
    wrap_head();
    extend_sorted_tail(*sub);
    if (sub_tables.size() == 1) next_time_ns = steady_now_ns();
    bitrate_sum += sub->bitrate;
    update_interval();
}

void TableCarrousel::update_subtable(SubTable* sub, std::string& new_packets) {
    std::unique_ptr<SubTable> removed;  // freed after the mutex is released
    const std::lock_guard lock(mutex);
    if (!sub->is_linked()) return;
    bitrate_sum -= sub->bitrate;
    if (new_packets.empty()) {
        if (sub == &*head) ++head;
        sub_tables.erase(sub_tables.iterator_to(*sub));
        wrap_head();
        sorted_tail -= std::min(sorted_tail, 1U);  // it may have been in the tail
        removed.reset(sub);
    } else {
        sub->packets.swap(new_packets);
        new_packets.clear();
        sub->index = 0;
        sub->update_bitrate();
        bitrate_sum += sub->bitrate;
    }
    update_interval();
}

void TableCarrousel::update_interval() {
    constexpr std::uint64_t ns_at_1_bps = kTsPacketBits * kNsPerSecond;
    interval_ns = bitrate_sum == 0 ? 0 : ns_at_1_bps / bitrate_sum;
}
