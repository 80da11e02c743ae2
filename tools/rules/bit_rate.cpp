#include "tools/rules/bit_rate.h"

#include <fmt/format.h>

#include "dvb/ts_packet.h"
#include "thrift/table_fields.h"

std::size_t BitRate::bits_per_second() const {
    return packets_per_second * kTsPacketBits;
}

std::string BitRate::text() const {
    return fmt::format("{:.1f} packets a second, {:.1f} kbit/s",
                       static_cast<double>(packets_per_second),
                       static_cast<double>(bits_per_second()) / 1000);
}

BitRate needed_bit_rate(const Multiplex& multiplex) {
    const auto times_per_second = [](TableKind kind) {
        return static_cast<std::size_t>(kNsPerSecond / table_info(kind).period_ns);
    };
    std::size_t packets = times_per_second(TableKind::kTdt);  // a TDT has one packet
    for_each_table(multiplex, [&](TablePlace place, const auto& table) {
        packets += times_per_second(place.kind) * fill_sections(table).packets();
    });
    return {packets};
}
