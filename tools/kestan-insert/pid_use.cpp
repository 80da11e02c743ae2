#include "tools/kestan-insert/pid_use.h"

#include <iterator>
#include <limits>

#include "dvb/psi_si.h"
#include "dvb/ts_packet.h"
#include "tools/receive/packet_flags.h"

namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min() / 2;

}  // namespace

PidUse::PidUse(const std::set<std::uint16_t>& kept)
    : pids_(kMaxPid + 1, Pid{kNever, kNever}),
      input_pat_sections_(
          [this](const auto& section, auto) { take_pat(input_pat_, section); }),
      tables_pat_sections_(
          [this](const auto& section, auto) { take_pat(tables_pat_, section); }) {
    for (const std::uint16_t pid : kept) pids_[pid].is_kept = true;
}

void PidUse::note_tables(std::int64_t now, const std::uint8_t* packet) {
    const std::uint16_t pid = pid_of(packet);
    learn(packet);
    pids_[pid].table_time = now;
    if (pid == kPatPid) tables_pat_sections_.push(packet, now);
}

void PidUse::note_input(const std::uint8_t* packet) {
    learn(packet);
    if (pid_of(packet) == kPatPid) input_pat_sections_.push(packet, 0);
}

// The PID of a damaged packet may be wrong, and what has been learnt stays.
void PidUse::learn(const std::uint8_t* packet) {
    Pid& pid = pids_[pid_of(packet)];
    if (pid.carries_stream || has_transport_error(packet)) return;
    pid.carries_stream = has_pcr(packet) || starts_pes_packet(packet);
}

void PidUse::take_pat(PatRecord& pat, const Section& section) {
    if (!pat.push(section)) return;
    for (auto at = on_air_.begin(); at != on_air_.end();) {
        at = is_read_on_air(at->first) ? std::next(at) : on_air_.erase(at);
    }
}

bool PidUse::is_read_on_air(std::uint16_t pid) const {
    return pid == kCatPid || input_pat_.announces(pid) || tables_pat_.announces(pid);
}

void PidUse::note_leaving(std::int64_t now, const std::uint8_t* packet) {
    const std::uint16_t pid = pid_of(packet);
    if (!is_read_on_air(pid)) return;
    const auto take = [this](const Section& section, std::int64_t begun) {
        read_named_pids(section, [&](auto named) { pids_[named].named_time = begun; });
    };
    on_air_.try_emplace(pid, take).first->second.push(packet, now);
}

bool PidUse::is_stream(std::int64_t now, std::uint16_t pid) const {
    return pid != kNullPid &&
           (pids_[pid].carries_stream || now - pids_[pid].named_time <= kSilenceNs);
}

bool PidUse::is_kestans(std::int64_t now, std::uint16_t pid) const {
    return now - pids_[pid].table_time <= kSilenceNs && !pids_[pid].is_kept &&
           !is_stream(now, pid);
}

bool PidUse::is_slot(std::int64_t now, const std::uint8_t* packet) const {
    const std::uint16_t pid = pid_of(packet);
    if (has_pcr(packet)) return false;
    if (pid == kNullPid || is_kestans(now, pid)) return true;
    return input_pat_.announces(pid) && is_kestans(now, kPatPid) && !is_kept(pid) &&
           !is_stream(now, pid);
}
