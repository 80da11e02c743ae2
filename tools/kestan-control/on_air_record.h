#ifndef KESTAN_TOOLS_KESTAN_CONTROL_ON_AIR_RECORD_H
#define KESTAN_TOOLS_KESTAN_CONTROL_ON_AIR_RECORD_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "tools/kestan-control/state_file.h"
#include "tools/model/multiplex.h"

// Which tables Kestan can have from this program, without their content. After a push
// that broke off, a table may be missing, and a service may be on one of several PIDs.
struct OnAir {
    std::set<TableKind> singles;                              // all tables but PMTs
    std::map<std::int32_t, std::set<std::uint16_t>> pids_of;  // by service

    OnAir() = default;
    explicit OnAir(const Multiplex& tables);

    [[nodiscard]] bool has(TableKind single) const { return singles.count(single) != 0; }

    // Adds what `other` has.
    void add(const OnAir& other);

    bool operator==(const OnAir& other) const {
        return singles == other.singles && pids_of == other.pids_of;
    }
};

// Keeps an OnAir for the next process. Warnings go to standard error.
//
// The file must never lack a table that Kestan has: so it is saved before the tables are
// sent, and a file that cannot be replaced is removed.
class OnAirRecord {
public:
    // `effect` says what a process without the record does. It must outlive the object.
    OnAirRecord(const char* name, const ControlAddress& address, const char* effect)
        : file_(name, address), effect_(effect) {}

    // Returns nullopt if nothing is known. Warns if the file cannot be read.
    [[nodiscard]] std::optional<OnAir> load();

    // Warns at the first of several failures.
    void save(const OnAir& on_air);

private:
    StateFile file_;
    const char* effect_;
    bool has_failed_ = false;
};

#endif
