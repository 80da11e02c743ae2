#ifndef KESTAN_TOOLS_RECEIVE_ANNOUNCED_PIDS_H
#define KESTAN_TOOLS_RECEIVE_ANNOUNCED_PIDS_H

#include <array>
#include <bitset>
#include <cstdint>
#include <functional>
#include <optional>

#include "dvb/psi_si.h"
#include "dvb/section_limits.h"
#include "tools/receive/section.h"

// What the tables of a stream say of its PIDs. Invalid sections, those of other tables
// and those not yet in force are skipped, and so are PIDs below 0x0020 and that of null
// packets: the tables have the former (ETSI EN 300 468, table 1).

// The last version of the PAT of one stream. One thread.
class PatRecord {
public:
    // Takes a section of PID 0. Returns whether it is the first one of a new PAT. An
    // encoder that starts again can send another PAT with the version of the last one.
    bool push(const Section& section);

    // Returns whether the PAT names `pid` as that of a program's PMT.
    [[nodiscard]] bool announces(std::uint16_t pid) const { return pmt_pids_[pid]; }

    // Returns whether both PATs have the same version_number and a section that differs.
    [[nodiscard]] bool contradicts(const PatRecord& other) const;

private:
    std::optional<std::uint8_t> version_;
    std::bitset<kMaxPid + 1> pmt_pids_;
    std::array<std::optional<std::uint32_t>, kMaxSections> crcs_;  // by section_number
};

// Calls `on_pid` for each PID that a section of a PMT or of a CAT names as that of a
// stream, of ECMs or of EMMs.
void read_named_pids(const Section& section,
                     const std::function<void(std::uint16_t pid)>& on_pid);

#endif
