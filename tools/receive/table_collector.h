#ifndef KESTAN_TOOLS_RECEIVE_TABLE_COLLECTOR_H
#define KESTAN_TOOLS_RECEIVE_TABLE_COLLECTOR_H

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "tools/model/multiplex.h"
#include "tools/receive/section_set.h"

// Finds the tables of a multiplex among the sections of a transport stream. A table
// counts as found when all sections of its version have come. One thread.
class TableCollector {
public:
    // Takes the next section of `pid`. Skips those that are not valid and those of other
    // tables.
    void push(std::uint16_t pid, const Section& section);

    // Returns whether these tables can come on the PID: for PMTs, the PAT says so.
    [[nodiscard]] bool follows(std::uint16_t pid) const;

    // Returns the last PAT so far.
    [[nodiscard]] const std::optional<orvel::thrift::dvb_tables::PAT>& pat() const {
        return found_.pat;
    }

    // Returns what has been found so far: the PMTs in the order of the PAT, one for each
    // service.
    [[nodiscard]] Multiplex tables() const;

private:
    struct Pmt {
        SectionSet sections;
        std::optional<orvel::thrift::dvb_tables::PMT> table;
    };

    void push_pmt(std::uint16_t pid, const Section& section);
    void follow_pat();

    Multiplex found_;  // without its PMTs
    // The sections of these, by table and by table_id_extension if it has sub-tables.
    std::map<std::pair<TableKind, std::uint16_t>, SectionSet> single_;
    std::map<std::pair<std::uint16_t, std::uint16_t>, Pmt> pmts_;  // by PID, service_id
};

#endif
