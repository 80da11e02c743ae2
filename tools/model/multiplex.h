#ifndef KESTAN_TOOLS_MODEL_MULTIPLEX_H
#define KESTAN_TOOLS_MODEL_MULTIPLEX_H

#include <cstdint>
#include <optional>
#include <vector>

#include "thrift/dvb_tables_types.h"

// A PMT and the PID that carries it.
struct PmtOnPid {
    std::uint16_t pid = 0;
    orvel::thrift::dvb_tables::PMT pmt;

    bool operator==(const PmtOnPid& other) const {
        return pid == other.pid && pmt == other.pmt;
    }
};

// The tables of one multiplex, as far as it has them.
struct Multiplex {
    std::optional<orvel::thrift::dvb_tables::PAT> pat;
    std::optional<orvel::thrift::dvb_tables::CAT> cat;
    std::optional<orvel::thrift::dvb_tables::SDT> sdt;  // of the actual transport stream
    std::vector<PmtOnPid> pmts;

    bool operator==(const Multiplex& other) const {
        return pat == other.pat && cat == other.cat && sdt == other.sdt &&
               pmts == other.pmts;
    }
};

#endif
