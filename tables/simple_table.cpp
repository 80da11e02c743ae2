#include "tables/simple_table.h"

#include "dvb/nanoseconds.h"

bool SimpleTable::next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) {
    const std::lock_guard lock(mutex);
    if (packets.empty()) return false;
    if (slot_time_ns < next_time_ns) return false;
    hand_out(packets.data() + index, dst);
    index += kTsPacketSize;
    if (index >= packets.size()) index = 0;
    next_time_ns += spacing_ns;
    return true;
}

void SimpleTable::replace_packets(std::string& new_packets) {
    const std::lock_guard lock(mutex);
    packets.swap(new_packets);
    index = 0;
    next_time_ns = steady_now_ns();
    const auto length = static_cast<std::int64_t>(packets.size());
    spacing_ns = length == 0 ? 0 : std::int64_t{kTsPacketSize} * period_ns / length;
}

void SimpleTable::clear() {
    std::string old_packets;  // freed after the mutex is released
    const std::lock_guard lock(mutex);
    packets.swap(old_packets);
    index = 0;
}
