#ifndef KESTAN_FUZZ_ROUND_TRIP_H
#define KESTAN_FUZZ_ROUND_TRIP_H

#include <stdexcept>
#include <string>

#include "tests/support/memory_file.h"
#include "tools/json/multiplex_file.h"
#include "tools/json/multiplex_json.h"

// Checks that kestan-control reads the same tables from the JSON that it writes.
inline void check_round_trip(const Multiplex& multiplex) {
    const std::string text = multiplex_to_json(multiplex).dump(2);
    const bool is_same = read_multiplex_file(memory_file(text)) == multiplex;
    if (!is_same) throw std::logic_error("read differently: " + text);
}

#endif
