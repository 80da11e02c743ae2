#include "tools/kestan-monitor/measure/stream_statistics.h"

#include <algorithm>
#include <string_view>

#include "dvb/psi_si.h"
#include "tools/kestan-monitor/measure/carried_tables.h"

namespace {

constexpr std::uint8_t kTransportError = 0x80;     // in byte 1
constexpr std::uint8_t kScramblingControl = 0xC0;  // in byte 3

// How long a PID may carry a PMT before the PAT announces it, or after the PAT has
// stopped announcing it (ETSI TR 101 290, 3.4).
constexpr std::int64_t kUnannouncedLimitNs = 500 * kNsPerMs;

// Memory stays bounded when a stream has PMTs of any service_id.
constexpr std::size_t kMaxUnannouncedTables = 1000;

// Returns whether a PID may carry a table_id. PIDs without a fixed use may carry any.
bool may_carry(std::uint16_t pid, std::uint8_t table_id) {
    const TableInfo* const table = table_on(pid);
    if (table == nullptr || table->table_id == table_id) return true;
    const std::string_view others = table->other_table_ids;
    return others.find(static_cast<char>(table_id)) != std::string_view::npos;
}

// Returns the table that sections of `table_id` on `pid` belong to, or nullopt if it is
// not followed.
std::optional<TableKind> kind_of(std::uint16_t pid, std::uint8_t table_id) {
    for (std::size_t i = 0; i < kTables.size(); ++i) {
        const TableInfo& table = kTables.at(i);
        if (table.table_id == table_id && table.pid.value_or(pid) == pid)
            return static_cast<TableKind>(i);
    }
    return std::nullopt;
}

// Returns whether the section belongs to such a table and is in force.
bool refreshes(TableKind kind, const dvbpsi_psi_section_t& section) {
    const bool is_long = section.b_syntax_indicator;
    const std::ptrdiff_t size = section.p_payload_end - section.p_payload_start;
    if (kind == TableKind::kTdt) return !is_long && size == std::ptrdiff_t{kUtcTimeSize};
    // A PMT has one section (ISO/IEC 13818-1, 2.4.4.9).
    const bool is_single = kind != TableKind::kPmt || section.i_last_number == 0;
    return is_long && is_single && size >= 0 && section.b_current_next;
}

// Returns whether a PMT seems to start at the first byte of the payload: pointer_field 0,
// table_id, and the bits that every PMT has (ISO/IEC 13818-1, 2.4.4.8). A PES packet
// starts with 0x00 0x00 0x01.
bool looks_like_pmt(const std::uint8_t* packet) {
    return starts_section(packet) && (packet[3] & kHasAdaptation) == 0 &&
           packet[4] == 0 && packet[5] == kPmtTableId && (packet[6] & 0xFC) == 0xB0;
}

bool is_scrambled(const std::uint8_t* packet) {
    return (packet[3] & kScramblingControl) != 0;
}

}  // namespace

StreamStatistics::StreamStatistics(std::int64_t start)
    : now_(start), last_arrival_(start) {
    for (const TableInfo& info : kTables) {
        if (!info.pid) continue;
        PidRecord& on = pid(*info.pid);
        on.has_to_carry_tables = true;
        collect_tables(on);
    }
    table(pid(kPatPid), {TableKind::kPat});
    table(pid(kSdtPid), {TableKind::kSdt});
    table(pid(kTdtPid), {TableKind::kTdt});
}

void StreamStatistics::set_civil_clock(std::int64_t civil_minus_steady,
                                       std::optional<std::int64_t> tolerance) {
    faults_.set_civil_minus_steady(civil_minus_steady);
    tdt_check_.set_tolerance(tolerance);
}

void StreamStatistics::begin(std::int64_t now) {
    start_ = now;
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) table.expect(now);
    }
}

PidRecord& StreamStatistics::pid(std::uint16_t number) {
    return pids_.try_emplace(number, number).first->second;
}

void StreamStatistics::collect_tables(PidRecord& on) {
    if (on.collector) return;
    on.collector = std::make_unique<SectionCollector>(
        [this, &on](const dvbpsi_psi_section_t& section) { on_section(on, section); });
}

// Returns null if the table is a new PMT that is not announced and kMaxUnannouncedTables
// of those are kept already.
TableRecord* StreamStatistics::table(PidRecord& on, const TableKey& key) {
    const auto found = on.tables.find(key);
    if (found != on.tables.end()) return &found->second;
    if (key.kind == TableKind::kPmt &&
        announced_.count({on.number, key.service_id}) == 0 &&
        ++unannounced_tables_ > kMaxUnannouncedTables) {
        return nullptr;
    }
    return &on.tables.try_emplace(key, on.number, key, faults_).first->second;
}

std::optional<DatagramPackets> StreamStatistics::push(std::int64_t arrival,
                                                      const std::uint8_t* datagram,
                                                      std::size_t size) {
    now_ = std::max(now_, arrival);
    check_silence(now_);
    is_silent_ = false;
    last_arrival_ = now_;
    if (!start_) begin(now_);
    ++datagrams_;
    const auto found = find_packets(datagram, size);
    if (!found) {
        faults_.add({FaultKind::malformed}, now_);
        return found;
    }
    if (found->stride == kCodedPacketSize) faults_.add({FaultKind::coded_packets}, now_);
    if (found->in_rtp) is_rtp_ = true;
    packets_ += found->count;
    sizes_.add(static_cast<std::int64_t>(found->count));
    peak_.add(now_, found->count);
    for (std::size_t i = 0; i < found->count; ++i) push_packet(found->packet(i));
    return found;
}

// Returns the longest silence that breaks no limit: the least repetition limit of the
// tables that have come.
std::int64_t StreamStatistics::longest_silence() const {
    std::optional<std::int64_t> shortest;
    for (const auto& [number, pid] : pids_) {
        for (const auto& [key, table] : pid.tables) {
            const auto limit = table_info(key.kind).repetition_limit_ns;
            if (table.sections() > 0 && limit)
                shortest = std::min(shortest.value_or(*limit), *limit);
        }
    }
    return shortest.value_or(*table_info(TableKind::kPat).repetition_limit_ns);
}

void StreamStatistics::check_silence(std::int64_t now) {
    const std::int64_t silence = now - last_arrival_;
    if (silence <= *table_info(TableKind::kPat).repetition_limit_ns)
        return;  // the least one
    const std::int64_t limit = longest_silence();
    if (silence <= limit) return;
    const Fault fault{FaultKind::silence};
    if (!std::exchange(is_silent_, true))
        faults_.add(fault, last_arrival_ + limit, silence);
    faults_.extend(fault, silence);
}

void StreamStatistics::advance(std::int64_t now, std::uint64_t lost) {
    now_ = std::max(now_, now);
    if (lost > lost_)
        faults_.add({FaultKind::lost}, now_, 0, lost - std::exchange(lost_, lost));
    if (!start_) return;
    check_silence(now_);
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) table.advance(now_);
    }
    if (std::exchange(has_new_tables_, false)) {
        tables_ = decode_tables(pids_);
        consistency_.replace(tables_, now_);
    }
    consistency_.advance(now_);
}

void StreamStatistics::finish() {
    if (!start_) faults_.add({FaultKind::reception}, now_);
}

void StreamStatistics::push_packet(const std::uint8_t* packet) {
    if (packet[0] != kSyncByte) {
        faults_.add({FaultKind::sync_byte}, now_);
        return;
    }
    const auto number = pid_of(packet);
    PidRecord& on = pid(number);
    ++on.packets;
    const bool has_error = (packet[1] & kTransportError) != 0;
    if (has_error) faults_.add(on.fault(FaultKind::transport_error), now_);
    if (number == kNullPid) return;
    const Continuity continuity = on.continuity.push(packet);
    if (continuity == Continuity::broken)
        faults_.add(on.fault(FaultKind::continuity), now_);
    if (continuity == Continuity::repeat || has_error) return;
    if (is_scrambled(packet)) {
        if (on.has_to_carry_tables) faults_.add(on.fault(FaultKind::scrambled), now_);
        return;
    }
    if (!on.collector && looks_like_pmt(packet)) collect_tables(on);
    if (on.collector) push_to_collector(on, packet);
}

void StreamStatistics::push_to_collector(PidRecord& on, const std::uint8_t* packet) {
    const bool has_remainder = on.collector->is_collecting() && packet[4] != 0;
    if (starts_section(packet) && !has_remainder) on.section_start = now_;
    const std::uint64_t before = on.collector->crc_errors();
    on.collector->push(packet);
    const std::uint64_t wrong = on.collector->crc_errors() - before;
    if (wrong > 0 && on.has_to_carry_tables)
        faults_.add(on.fault(FaultKind::crc), now_, 0, wrong);
}

void StreamStatistics::on_section(PidRecord& on, const dvbpsi_psi_section_t& section) {
    // The section that follows in this packet begins now.
    const std::int64_t start = std::exchange(on.section_start, now_);
    if (!may_carry(on.number, section.i_table_id)) {
        faults_.add(on.fault(FaultKind::table_id), now_);
        return;
    }
    const std::optional<TableKind> kind = kind_of(on.number, section.i_table_id);
    if (!kind || !refreshes(*kind, section)) return;

    const bool is_pmt = *kind == TableKind::kPmt;
    if (is_pmt) check_announcement(on);
    const TableKey key{*kind, is_pmt ? section.i_extension : std::uint16_t{0}};
    TableRecord* const of = table(on, key);
    if (of == nullptr) return;
    const TableRecord::Arrival arrival = of->add(section, start, now_);
    const bool is_stray = is_pmt && !of->is_announced();
    if (arrival.interval && on_interval_ && !is_stray)
        on_interval_(on.number, key, now_, *arrival.interval);
    if (arrival.is_changed) has_new_tables_ = true;
    if (*kind == TableKind::kTdt) tdt_check_.add(of->fault({}), *of->utc(), now_);
    if (*kind != TableKind::kPat) return;
    pat_alternation_.add(of->fault(FaultKind::pat_alternates), section.i_extension,
                         section.i_version, now_);
    if (arrival.is_changed) follow_pat();
}

// Called when a PMT has come on the PID.
void StreamStatistics::check_announcement(PidRecord& on) {
    const bool has_pat = pids_.at(kPatPid).tables.at({TableKind::kPat}).is_complete();
    if (on.has_to_carry_tables || !has_pat) {
        on.unannounced_since.reset();
        return;
    }
    if (!on.unannounced_since) on.unannounced_since = now_;
    if (now_ - *on.unannounced_since <= kUnannouncedLimitNs) return;
    faults_.add(on.fault(FaultKind::unannounced_pmt), now_);
}

// Expects the PMTs of the PAT in force, and no others.
void StreamStatistics::follow_pat() {
    const auto pat = decode_pat(pids_.at(kPatPid).tables.at({TableKind::kPat}));
    if (!pat) return;
    announced_.clear();
    for (const auto& program : pat->programs) {
        if (program.program_number == 0) continue;  // gives the network PID
        announced_.emplace(static_cast<std::uint16_t>(program.pid),
                           static_cast<std::uint16_t>(program.program_number));
    }
    withdraw_unannounced();
    for (const auto& [number, service_id] : announced_) {
        PidRecord& on = pid(number);
        on.has_to_carry_tables = true;
        collect_tables(on);
        TableRecord& pmt = *table(on, {TableKind::kPmt, service_id});
        if (!pmt.is_announced()) pmt.expect(now_);
    }
}

// The report keeps tables that have come, up to kMaxUnannouncedTables.
void StreamStatistics::withdraw_unannounced() {
    unannounced_tables_ = 0;
    for (auto& [number, pid] : pids_) {
        if (table_on(number) == nullptr) pid.has_to_carry_tables = false;
        for (auto at = pid.tables.begin(); at != pid.tables.end();) {
            auto& [key, table] = *at;
            const bool is_other = key.kind != TableKind::kPmt ||
                                  announced_.count({number, key.service_id}) != 0;
            if (is_other) {
                ++at;
                continue;
            }
            if (table.is_announced()) table.withdraw(now_);
            const bool is_kept =
                table.sections() > 0 && ++unannounced_tables_ <= kMaxUnannouncedTables;
            at = is_kept ? std::next(at) : pid.tables.erase(at);
        }
    }
}
