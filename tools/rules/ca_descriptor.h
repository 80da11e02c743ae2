#ifndef KESTAN_TOOLS_RULES_CA_DESCRIPTOR_H
#define KESTAN_TOOLS_RULES_CA_DESCRIPTOR_H

#include <cstdint>
#include <optional>

#include "dvb/psi_si.h"
#include "thrift/dvb_tables_types.h"

// The fixed part of a CA descriptor (ISO/IEC 13818-1, 2.6.16).
struct CaDescriptor {
    std::uint16_t system_id = 0;
    std::uint16_t pid = 0;
};

// Returns nullopt if the descriptor is another one or is too short.
[[nodiscard]] inline std::optional<CaDescriptor> ca_descriptor(
    const orvel::thrift::dvb_tables::Descriptor& descriptor) {
    if (descriptor.tag != kCaTag || descriptor.data.size() < 4) {
        return std::nullopt;
    }
    const auto byte = [&](std::size_t at) {
        return static_cast<std::uint8_t>(descriptor.data[at]);
    };
    return CaDescriptor{static_cast<std::uint16_t>(byte(0) << 8 | byte(1)),
                        static_cast<std::uint16_t>((byte(2) & 0x1F) << 8 | byte(3))};
}

#endif
