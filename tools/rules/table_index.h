#ifndef KESTAN_TOOLS_RULES_TABLE_INDEX_H
#define KESTAN_TOOLS_RULES_TABLE_INDEX_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "thrift/dvb_tables_types.h"
#include "tools/model/multiplex.h"

constexpr TablePlace kInPat{TableKind::kPat, 0};
constexpr TablePlace kInSdt{TableKind::kSdt, 0};

[[nodiscard]] constexpr TablePlace in_pmt(std::size_t index) {
    return {TableKind::kPmt, index};
}

// Returns the place of an element, such as "streams[1]".
[[nodiscard]] std::string element(const char* list, std::size_t index);

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

    // Returns the PID that the PAT gives for a service in its first entry for it. Returns
    // nullopt if there is no PAT or if the PAT lacks the service.
    [[nodiscard]] std::optional<std::int32_t> announced_pid(
        std::int32_t service_id) const;

    // Returns the index of the first PMT of a service, or nullopt if there is none.
    [[nodiscard]] std::optional<std::size_t> pmt_of(std::int32_t service_id) const;

    // Returns what a PID carries (a stream, a PCR or CA data), such as "a stream of
    // service 101 (0x0065)". Returns an empty text if no PMT names the PID for one of
    // these.
    [[nodiscard]] const std::string& stream_on(std::int32_t pid) const;

    // Calls visit(place, pmt) for each PMT.
    template <typename Visit>
    void for_each_pmt(Visit visit) const {
        for (std::size_t i = 0; i < tables_.pmts.size(); ++i)
            visit(in_pmt(i), tables_.pmts[i]);
    }

    // Calls visit(index, program) for each program of the PAT.
    template <typename Visit>
    void for_each_program(Visit visit) const {
        if (!tables_.pat) return;
        for (std::size_t i = 0; i < tables_.pat->programs.size(); ++i)
            visit(i, tables_.pat->programs[i]);
    }

    // Calls visit(index, service) for each service of the SDT.
    template <typename Visit>
    void for_each_service(Visit visit) const {
        if (!tables_.sdt) return;
        for (std::size_t i = 0; i < tables_.sdt->services.size(); ++i)
            visit(i, tables_.sdt->services[i]);
    }

    // Calls visit(place, pmt, index, stream) for each stream of each PMT.
    template <typename Visit>
    void for_each_stream(Visit visit) const {
        for_each_pmt([&](TablePlace place, const PmtOnPid& pmt) {
            for (std::size_t i = 0; i < pmt.pmt.streams.size(); ++i)
                visit(place, pmt.pmt, i, pmt.pmt.streams[i]);
        });
    }

    // Calls `visit` for each descriptor of all tables. `field` is its place, as in
    // "streams[1].descriptors[0]".
    using Visit = std::function<void(TablePlace table, const std::string& field,
                                     const orvel::thrift::dvb_tables::Descriptor&)>;
    void for_each_descriptor(const Visit& visit) const;

    // Calls `visit` for the descriptors of one PMT and of its streams.
    void for_each_descriptor_of_pmt(std::size_t index, const Visit& visit) const;

private:
    void index_pids(std::size_t pmt);

    const Multiplex& tables_;
    std::unordered_map<std::int32_t, std::int32_t> announced_pids_;  // by service
    std::unordered_map<std::int32_t, std::size_t> pmts_;             // by service
    std::unordered_map<std::int32_t, std::string> streams_;          // by PID
};

#endif
