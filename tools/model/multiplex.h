#ifndef KESTAN_TOOLS_MODEL_MULTIPLEX_H
#define KESTAN_TOOLS_MODEL_MULTIPLEX_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "dvb/table_kind.h"
#include "thrift/dvb_tables_types.h"
#include "thrift/table_fields.h"

using orvel::thrift::dvb_tables::for_each_single_table;

// A PMT and the PID that carries it.
struct PmtOnPid {
    std::uint16_t pid = 0;
    orvel::thrift::dvb_tables::PMT pmt;

    bool operator==(const PmtOnPid& other) const {
        return pid == other.pid && pmt == other.pmt;
    }
};

// The tables of one multiplex, as far as it has them.
struct Multiplex : orvel::thrift::dvb_tables::SingleTables {
    std::vector<PmtOnPid> pmts;

    bool operator==(const Multiplex& other) const {
        bool is_equal = pmts == other.pmts;
        for_each_single_table([&](TableKind, auto member) {
            is_equal = is_equal && this->*member == other.*member;
        });
        return is_equal;
    }
};

// Which of the tables of a multiplex is meant.
struct TablePlace {
    TableKind kind = TableKind::kPat;
    std::size_t pmt = 0;  // index in Multiplex::pmts; 0 for the other kinds
};

// Returns a pointer to the PMT of a service, or null if it is not among `pmts`.
template <typename Pmts>
[[nodiscard]] auto find_pmt(Pmts& pmts, std::int32_t service) {
    const auto found = std::find_if(pmts.begin(), pmts.end(), [&](const PmtOnPid& pmt) {
        return pmt.pmt.program_number == service;
    });
    return found == pmts.end() ? nullptr : &*found;
}

// Calls visit(place, table) for each table that the multiplex has.
template <typename Visit>
void for_each_table(const Multiplex& multiplex, Visit visit) {
    for_each_single_table([&](TableKind kind, auto member) {
        const auto& table = multiplex.*member;
        if (table) visit(TablePlace{kind, 0}, *table);
    });
    for (std::size_t i = 0; i < multiplex.pmts.size(); ++i) {
        visit(TablePlace{TableKind::kPmt, i}, multiplex.pmts[i].pmt);
    }
}

[[nodiscard]] inline std::size_t table_count(const Multiplex& multiplex) {
    std::size_t count = 0;
    for_each_table(multiplex, [&](TablePlace, const auto&) { ++count; });
    return count;
}

#endif
