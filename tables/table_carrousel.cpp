#include "tables/table_carrousel.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <system_error>

#include "mux/slot_time.h"

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
        waiting.clear();
        sub_tables.clear_and_dispose(destroy);
    } catch (const std::system_error&) {
        waiting.clear();
        sub_tables.clear();
    }
}

bool TableCarrousel::next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) {
    const std::lock_guard lock(mutex);
    if (sub_tables.empty()) return false;
    if (slot_time_ns < next_time_ns) return false;
    next_time_ns += static_cast<std::int64_t>(interval_ns);

    SubTable& cur = sub_tables.front();
    std::memcpy(dst, cur.packets.data() + cur.index, kTsPacketSize);
    cur.index += kTsPacketSize;
    if (cur.index >= cur.packets.size()) {
        cur.index = 0;
        cur.eligible_time_ns = slot_time_ns + cur.period_ms * kNsPerMs;
        if (sub_tables.size() > 1) {
            await_eligible_time(cur);
            move_on(slot_time_ns);
        }
    } else if ((cur.packets[cur.index + 1] & kPayloadUnitStart) != 0) {
        move_on(slot_time_ns);
    }
    stamp_continuity(dst);
    return true;
}

void TableCarrousel::move_on(std::int64_t slot_time_ns) {
    while (!waiting.empty() && slot_time_ns >= waiting.front().eligible_time_ns) {
        waiting.pop_front();
    }
    if (waiting.size() == sub_tables.size()) return move_head_to_tail();
    for (std::uint32_t moves = 0; moves < sub_tables.size(); ++moves) {
        move_head_to_tail();
        if (slot_time_ns >= sub_tables.front().eligible_time_ns) return;
    }
    move_head_to_tail();
}

void TableCarrousel::await_eligible_time(SubTable& sub) {
    if (!sub.waiting_hook.is_linked()) waiting.push_front(sub);
    // With one period for all of them its place is the last. The search ends at `sub`.
    const auto not_after = [&sub](const SubTable& other) {
        return other.eligible_time_ns <= sub.eligible_time_ns;
    };
    const auto place = std::find_if(waiting.rbegin(), waiting.rend(), not_after).base();
    waiting.splice(place, waiting, waiting.iterator_to(sub));
}

void TableCarrousel::move_head_to_tail() {
    sub_tables.splice(sub_tables.end(), sub_tables, sub_tables.begin());
}

void TableCarrousel::add_subtable(SubTable* sub) {
    const std::lock_guard lock(mutex);
    sub_tables.push_back(*sub);
    if (sub_tables.size() == 1) next_time_ns = steady_now_ns();
    bitrate_sum += sub->bitrate;
    update_interval();
}

void TableCarrousel::update_subtable(SubTable* sub, std::string& new_packets) {
    std::unique_ptr<SubTable> removed;  // freed after the mutex has been released
    const std::lock_guard lock(mutex);
    if (!sub->is_linked()) return;
    bitrate_sum -= sub->bitrate;
    if (new_packets.empty()) {
        sub_tables.erase(sub_tables.iterator_to(*sub));
        if (sub->waiting_hook.is_linked()) waiting.erase(waiting.iterator_to(*sub));
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
