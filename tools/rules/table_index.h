#ifndef KESTAN_TOOLS_RULES_TABLE_INDEX_H
#define KESTAN_TOOLS_RULES_TABLE_INDEX_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "thrift/dvb_tables_types.h"
#include "tools/model/multiplex.h"

// A field or an element of a table, or the table itself.
struct FieldPlace {
    TablePlace table;
    std::string field;  // such as "streams[1].elementary_pid"; empty for the table

    // Returns the place of a field that this table or element has.
    [[nodiscard]] FieldPlace at(const std::string& name) const {
        return {table, field.empty() ? name : field + '.' + name};
    }
};

constexpr TablePlace kInPat{TableKind::kPat, 0};
constexpr TablePlace kInSdt{TableKind::kSdt, 0};

// An element of a table's list, or a PMT.
template <typename Element>
struct Placed {
    FieldPlace place;
    const Element& element;
};

// The fixed part of a CA descriptor (ISO/IEC 13818-1, 2.6.16), which names the PID of
// EMMs if it is in the CAT, and that of ECMs in a PMT.
struct CaDescriptor {
    FieldPlace place;
    std::uint16_t system_id = 0;
    std::uint16_t pid = 0;

    [[nodiscard]] bool is_in_cat() const { return place.table.kind == TableKind::kCat; }
    [[nodiscard]] const char* messages() const { return is_in_cat() ? "EMMs" : "ECMs"; }
};

// Returns a text such as "service 101 (0x0065)".
[[nodiscard]] std::string service_text(std::int32_t service_id);

// Returns what a PID is reserved for (ISO/IEC 13818-1, table 2-3; ETSI EN 300 468, table
// 1), such as "the SDT" or "null packets". Returns an empty text if it is free.
[[nodiscard]] std::string reserved_use(std::int32_t pid);

// The tables of a multiplex, with what several rules look up in them. The multiplex must
// outlive the index.
class TableIndex {
public:
    explicit TableIndex(const Multiplex& multiplex);

    [[nodiscard]] const Multiplex& tables() const { return tables_; }

    // Returns all programs, services, PMTs, streams or descriptors, in the order of the
    // tables.
    template <typename Element>
    [[nodiscard]] const std::vector<Placed<Element>>& all() const {
        return std::get<std::vector<Placed<Element>>>(elements_);
    }

    // Returns the CA descriptors of the CAT, and then those of the PMTs. Those that are
    // too short are left out.
    [[nodiscard]] const std::vector<CaDescriptor>& ca_descriptors() const {
        return ca_descriptors_;
    }

    // Returns the PID that the PAT gives for a service in its first entry for it. Returns
    // nullopt if there is no PAT or if the PAT lacks the service.
    [[nodiscard]] std::optional<std::int32_t> announced_pid(
        std::int32_t service_id) const;

    // Returns the index of the first PMT of a service, or nullopt if there is none.
    [[nodiscard]] std::optional<std::size_t> pmt_of(std::int32_t service_id) const;

    // Returns the service of the PMT that has the place.
    [[nodiscard]] std::int32_t service_of(const FieldPlace& in_pmt) const {
        return tables_.pmts[in_pmt.table.pmt].pmt.program_number;
    }

    // Returns what a PID carries (a stream, a PCR or CA data), such as "a stream of
    // service 101 (0x0065)". Returns an empty text if no PMT names the PID for one of
    // these.
    [[nodiscard]] std::string stream_on(std::int32_t pid) const;

    using Elements =
        std::tuple<std::vector<Placed<orvel::thrift::dvb_tables::PATProgram>>,
                   std::vector<Placed<orvel::thrift::dvb_tables::SDTService>>,
                   std::vector<Placed<PmtOnPid>>,
                   std::vector<Placed<orvel::thrift::dvb_tables::PMTStream>>,
                   std::vector<Placed<orvel::thrift::dvb_tables::Descriptor>>>;

private:
    void index_streams();

    const Multiplex& tables_;
    Elements elements_;
    std::vector<CaDescriptor> ca_descriptors_;
    std::unordered_map<std::int32_t, std::int32_t> announced_pids_;  // by service
    std::unordered_map<std::int32_t, std::size_t> pmts_;             // by service
    std::unordered_map<std::int32_t, std::string> streams_;          // by PID
};

#endif
