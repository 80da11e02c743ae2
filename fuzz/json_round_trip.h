#ifndef KESTAN_FUZZ_JSON_ROUND_TRIP_H
#define KESTAN_FUZZ_JSON_ROUND_TRIP_H

#include <gtest/gtest.h>

#include <string>

#include "fuzz/memory_file.h"
#include "tools/multiplex_file.h"
#include "tools/multiplex_json.h"

// What kestan-control writes, it reads again as the same.
inline void check_round_trip(const Multiplex& multiplex) {
    const std::string text = multiplex_to_json(multiplex).dump(2);
    const MemoryFile file(reinterpret_cast<const std::uint8_t*>(text.data()),
                          text.size());
    const Multiplex again = read_multiplex_files({file.path()});
    ASSERT_TRUE(again.pat == multiplex.pat) << text;
    ASSERT_TRUE(again.cat == multiplex.cat) << text;
    ASSERT_TRUE(again.sdt == multiplex.sdt) << text;
    ASSERT_EQ(again.pmts.size(), multiplex.pmts.size()) << text;
    for (std::size_t i = 0; i < again.pmts.size(); ++i) {
        ASSERT_EQ(again.pmts[i].pid, multiplex.pmts[i].pid) << text;
        ASSERT_TRUE(again.pmts[i].pmt == multiplex.pmts[i].pmt) << text;
    }
}

#endif
