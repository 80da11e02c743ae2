#include "tables/tdt_table.h"

#include <algorithm>

#include "dvb/psi_si.h"
#include "dvb/table_kind.h"
#include "framework/clock.h"

namespace {

constexpr std::size_t kUtcTimeOffset = 8;  // of the UTC_time in the packet

std::array<std::uint8_t, kTsPacketSize> make_template() {
    constexpr std::array<std::uint8_t, kUtcTimeOffset> head = {
        kSyncByte,    kPayloadUnitStart | kTdtPid >> 8, kTdtPid & 0xFF, kHasPayload,
        0x00,  // pointer_field
        kTdtTableId,
        0x70,  // section_syntax_indicator 0, reserved bits 1, section_length 11..8
        kUtcTimeSize,  // section_length 7..0
    };
    std::array<std::uint8_t, kTsPacketSize> packet{};
    std::fill(std::copy(head.begin(), head.end(), packet.begin()), packet.end(),
              kStuffingByte);
    return packet;
}

}  // namespace

TDTTable::TDTTable()
    : muxed_stream(kTdtPid),
      packet(make_template()),
      next_time_ns(steady_now_ns()),
      time_valid(IsSystemTimeSet() == 0) {}

bool TDTTable::next_packet(std::uint8_t* dst, std::int64_t slot_time_ns) {
    const std::lock_guard lock(mutex);
    if (!enabled) return false;
    if (slot_time_ns < next_time_ns) return false;
    next_time_ns += period_ns;
    if (!time_valid) {
        time_valid = IsSystemTimeSet() == 0;
        if (!time_valid) return false;
    }
    const std::int64_t utc = GetUTCTime();
    if (utc < 1) return false;
    hand_out(packet.data(), dst);
    for (std::size_t i = 0; i < kUtcTimeSize; ++i) {
        const auto shift = 8 * (kUtcTimeSize - 1 - i);
        dst[kUtcTimeOffset + i] = static_cast<std::uint8_t>(utc >> shift & 0xFF);
    }
    return true;
}
