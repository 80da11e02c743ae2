#ifndef KESTAN_TOOLS_MODEL_MULTIPLEX_H
#define KESTAN_TOOLS_MODEL_MULTIPLEX_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "dvb/table_kind.h"
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

// Which of the tables of a multiplex is meant.
struct TablePlace {
    TableKind kind = TableKind::kPat;
    std::size_t pmt = 0;  // index in Multiplex::pmts; 0 for the other kinds
};

// Calls visit(kind, member) for each table that a multiplex has only once. `member` is
// the table's place in any Multiplex, such as &Multiplex::pat.
template <typename Visit>
void for_each_single_table(Visit visit) {
    visit(TableKind::kPat, &Multiplex::pat);
    visit(TableKind::kCat, &Multiplex::cat);
    visit(TableKind::kSdt, &Multiplex::sdt);
}

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
