#ifndef KESTAN_TOOLS_KESTAN_INSERT_PID_USE_H
#define KESTAN_TOOLS_KESTAN_INSERT_PID_USE_H

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "dvb/nanoseconds.h"
#include "tools/receive/announced_pids.h"
#include "tools/receive/section_assembler.h"

// What has not come for this long is gone: a source, Kestan's use of a PID, a PMT on air.
constexpr std::int64_t kSilenceNs = 5 * kNsPerSecond;

// Learns from the packets of INPUT and TABLES what each PID is used for, and so which
// packets of INPUT are slots.
//
// These are slots:
// - a null packet;
// - a packet on a PID that is Kestan's: TABLES has carried a packet on it within 5 s;
// - while Kestan plays a PAT, a packet on a PMT PID of INPUT's PAT.
// These are never slots:
// - a packet with a PCR;
// - a packet on a PID that the user keeps;
// - a packet on the PID of a stream: either stream has carried a PCR or the start of a
//   PES packet on it, or a PMT or CAT on air has named it within 5 s as that of a
//   stream, of ECMs or of EMMs.
//
// Packets are kTsPacketSize bytes with a sync byte. Times are nanoseconds of the steady
// clock. Memory is bounded. One thread.
class PidUse {
public:
    // INPUT's packets on the PIDs of `kept` pass, and TABLES' are dropped.
    explicit PidUse(const std::set<std::uint16_t>& kept);
    PidUse(const PidUse&) = delete;
    PidUse& operator=(const PidUse&) = delete;

    // Take the next packet of TABLES and of INPUT, null packets included.
    void note_tables(std::int64_t now, const std::uint8_t* packet);
    void note_input(const std::uint8_t* packet);

    // Takes the next packet that leaves.
    void note_leaving(std::int64_t now, const std::uint8_t* packet);

    // REQUIRES: note_input() has taken the packet.
    [[nodiscard]] bool is_slot(std::int64_t now, const std::uint8_t* packet) const;

    [[nodiscard]] bool is_kept(std::uint16_t pid) const { return pids_[pid].is_kept; }
    [[nodiscard]] bool is_stream(std::int64_t now, std::uint16_t pid) const;

    // Returns whether the PATs of INPUT and TABLES have the same version_number and
    // differ.
    [[nodiscard]] bool do_pats_contradict() const {
        return input_pat_.contradicts(tables_pat_);
    }

private:
    struct Pid {
        std::int64_t table_time;  // when TABLES carried a packet on it last
        std::int64_t named_time;  // when a table on air named it last
        bool is_kept = false;
        bool carries_stream = false;  // a PCR or the start of a PES packet has come
    };

    [[nodiscard]] bool is_kestans(std::int64_t now, std::uint16_t pid) const;
    [[nodiscard]] bool is_read_on_air(std::uint16_t pid) const;
    void learn(const std::uint8_t* packet);
    void take_pat(PatRecord& pat, const Section& section);

    std::vector<Pid> pids_;
    PatRecord input_pat_;
    PatRecord tables_pat_;
    PidSections input_pat_sections_;
    PidSections tables_pat_sections_;
    std::map<std::uint16_t, PidSections> on_air_;  // the CAT and the PMTs, by PID
};

#endif
