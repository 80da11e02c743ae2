#ifndef KESTAN_TOOLS_RULES_BIT_RATE_H
#define KESTAN_TOOLS_RULES_BIT_RATE_H

#include <cstddef>
#include <string>

#include "tools/model/multiplex.h"

// The mean rate of what Kestan sends: each table once per repetition period, and the TDT.
struct BitRate {
    std::size_t packets_per_second = 0;

    [[nodiscard]] std::size_t bits_per_second() const;
    // Returns a text such as "25.0 packets a second, 37.6 kbit/s".
    [[nodiscard]] std::string text() const;
};

[[nodiscard]] BitRate needed_bit_rate(const Multiplex& multiplex);

#endif
