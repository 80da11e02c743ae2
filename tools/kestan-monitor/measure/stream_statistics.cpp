#include "tools/kestan-monitor/measure/stream_statistics.h"

#include <algorithm>
#include <string_view>

#include "dvb/psi_si.h"
#include "tools/kestan-monitor/measure/carried_tables.h"
#include "tools/receive/packet_flags.h"
#include "tools/receive/table_decoder.h"

namespace {

constexpr std::uint8_t kScramblingControl = 0xC0;  // in byte 3

// How long a PID may carry a PMT before the PAT announces it, or after the PAT has
// stopped announcing it (ETSI TR 101 290, 3.4).
constexpr std::int64_t kUnannouncedLimitNs = 500 * kNsPerMs;

// A PAT of many sections that changes all the time would take all of a processor.
constexpr std::int64_t kLeastFollowIntervalNs = kNsPerSecond;

// Kestan without tables still sends a TDT each second. After two seconds without a
// datagram the stream is down, which is a fault of its own.
constexpr std::int64_t kDownAfterNs = 2 * kNsPerSecond;

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

// Returns whether the section belongs to such a table and is in force. REQUIRES: it is
// valid.
bool refreshes(TableKind kind, const Section& section) {
    if (kind == TableKind::kTdt)
        return !section.is_long() && section.body_size() == kUtcTimeSize;
    if (!section.is_long() || !section.is_current()) return false;
    // A PMT has one section (ISO/IEC 13818-1, 2.4.4.9).
    return kind != TableKind::kPmt || section.last_number() == 0;
}

// Returns whether a PMT seems to start at the first byte of the payload: pointer_field 0,
// table_id, and the bits that every PMT has (ISO/IEC 13818-1, 2.4.4.8). A PES packet
// starts with 0x00 0x00 0x01.
bool looks_like_pmt(const std::uint8_t* packet) {
    return starts_section(packet) && !has_adaptation_field(packet) && packet[4] == 0 &&
           packet[5] == kPmtTableId && (packet[6] & 0xFC) == 0xB0;
}

bool is_scrambled(const std::uint8_t* packet) {
    return (packet[3] & kScramblingControl) != 0;
}

}  // namespace

StreamStatistics::StreamStatistics(std::int64_t start)
    : now_(start), last_arrival_(start) {
    for (std::size_t i = 0; i < kTables.size(); ++i) {
        const TableInfo& table = kTables.at(i);
        if (!table.pid) continue;
        const Pid& pid = expect_tables(*table.pid);
        if (table.repetition_limit_ns)
            find_or_add(pid.record, {static_cast<TableKind>(i)});
    }
}

void StreamStatistics::set_civil_clock(std::int64_t civil_minus_steady,
                                       std::optional<std::int64_t> tolerance) {
    faults_.set_civil_minus_steady(civil_minus_steady);
    tdt_check_.set_tolerance(tolerance);
}

void StreamStatistics::begin() {
    start_ = now_;
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) table.expect(now_);
    }
}

StreamStatistics::Pid& StreamStatistics::find_or_add(std::uint16_t number) {
    const auto found = followed_.find(number);
    if (found != followed_.end()) return found->second;
    PidRecord& record = pids_.try_emplace(number, number).first->second;
    return followed_.try_emplace(number, record).first->second;
}

StreamStatistics::Pid& StreamStatistics::expect_tables(std::uint16_t number) {
    Pid& pid = find_or_add(number);
    pid.has_to_carry_tables = true;
    assemble_sections(pid);
    return pid;
}

void StreamStatistics::assemble_sections(Pid& pid) {
    if (pid.assembler) return;
    pid.assembler.emplace([this, &pid](const Section& section, std::int64_t begun) {
        on_section(pid, section, begun);
    });
}

bool StreamStatistics::is_unannounced(std::uint16_t pid, const TableKey& key) const {
    return key.kind == TableKind::kPmt && announced_.count({pid, key.service_id}) == 0;
}

// Returns null if the table is a new PMT that is not announced and kMaxUnannouncedTables
// of those are kept already.
TableRecord* StreamStatistics::find_or_add(PidRecord& pid, const TableKey& key) {
    const auto found = pid.tables.find(key);
    if (found != pid.tables.end()) return &found->second;
    if (is_unannounced(pid.number, key)) {
        if (unannounced_tables_ == kMaxUnannouncedTables) return nullptr;
        ++unannounced_tables_;
    }
    return &pid.tables.try_emplace(key, pid.number, key, faults_).first->second;
}

std::optional<DatagramPackets> StreamStatistics::push(std::int64_t arrival,
                                                      const std::uint8_t* datagram,
                                                      std::size_t size) {
    now_ = std::max(now_, arrival);
    check_silence();
    if (std::exchange(is_silent_, false)) cat_check_.restart();
    last_arrival_ = now_;
    if (!start_) begin();
    ++datagrams_;
    const auto found = find_packets(datagram, size);
    if (!found) {
        faults_.add({FaultKind::kMalformed}, now_);
        return found;
    }
    if (found->stride == kCodedPacketSize) faults_.add({FaultKind::kCodedPackets}, now_);
    if (found->in_rtp) rtp_sequence_.add(datagram, now_);
    if (found->in_rtp) is_rtp_ = true;
    const auto count = static_cast<std::int64_t>(found->count);
    sizes_.add(count);
    peak_.add(now_, found->count);
    if (series_) series_->packets.add(now_ - series_->start, count);
    for (std::size_t i = 0; i < found->count; ++i) push_packet(found->packet(i));
    return found;
}

// The longest silence that breaks no limit is the least limit of the tables that have
// come.
void StreamStatistics::check_silence() {
    const std::int64_t silence = now_ - last_arrival_;
    const std::int64_t limit =
        least_limit_.value_or(*table_info(TableKind::kPat).repetition_limit_ns);
    if (silence <= limit) return;
    const Fault fault{FaultKind::kSilence};
    if (!std::exchange(is_silent_, true))
        faults_.add(fault, last_arrival_ + limit, silence);
    faults_.extend(fault, silence);
}

void StreamStatistics::advance(std::int64_t now, std::uint64_t lost) {
    now_ = std::max(now_, now);
    if (lost > lost_) {
        faults_.add({FaultKind::kLost}, now_, 0, lost - lost_);
        lost_ = lost;
    }
    if (!start_) return;
    check_silence();
    follow_pat();
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) {
            if (key.kind != TableKind::kPmt || !pat_changed_) table.advance(now_);
        }
    }
    const bool has_new_tables = std::exchange(has_new_tables_, false);
    if (has_new_tables) replace_tables();
    if (now_ - last_arrival_ > kDownAfterNs) {
        expected_.forget();
    } else {
        expected_.advance(now_, pids_, has_new_tables);
    }
    consistency_.advance(now_, pids_);
}

void StreamStatistics::replace_tables() {
    const Multiplex tables = carried_tables(pids_);
    service_names_ = service_names_in(tables);
    consistency_.replace(tables, now_);
    streams_.clear();
    for (const PmtOnPid& pmt : tables.pmts) {
        for (const auto& stream : pmt.pmt.streams)
            streams_.insert(static_cast<std::uint16_t>(stream.elementary_pid));
    }
}

void StreamStatistics::finish(std::int64_t now, std::uint64_t lost) {
    pat_followed_.reset();
    advance(now, lost);
    if (!is_silent_) expected_.finish();
    if (!start_) faults_.add({FaultKind::kReception}, now_);
}

void StreamStatistics::push_packet(const std::uint8_t* packet) {
    if (packet[0] != kSyncByte) {
        faults_.add({FaultKind::kNoSyncByte}, now_);
        return;
    }
    const std::uint16_t number = pid_of(packet);
    Pid& pid = find_or_add(number);
    ++pid.record.packets;
    const bool has_error = has_transport_error(packet);
    if (has_error) faults_.add(pid.record.fault(FaultKind::kTransportError), now_);
    if (pid.record.number == kNullPid) return;
    if (!has_error && has_pcr(packet)) pid.record.last_pcr = now_;
    const Continuity continuity = pid.continuity.push(packet);
    if (continuity == Continuity::kBroken)
        faults_.add(pid.record.fault(FaultKind::kContinuity), now_);
    if (continuity == Continuity::kRepeat) return;
    if (has_error || is_scrambled(packet)) {
        if (!has_error && pid.has_to_carry_tables)
            faults_.add(pid.record.fault(FaultKind::kScrambled), now_);
        if (!has_error && streams_.count(pid.record.number) != 0)
            cat_check_.add_scrambled(now_);
        if (pid.assembler) pid.assembler->discard();
        return;
    }
    if (looks_like_pmt(packet)) assemble_sections(pid);
    if (pid.assembler) pid.assembler->push(packet, continuity, now_);
}

void StreamStatistics::on_section(Pid& pid, const Section& section, std::int64_t begun) {
    if (!section.is_valid()) {
        if (pid.has_to_carry_tables) faults_.add(pid.record.fault(FaultKind::kCrc), now_);
        return;
    }
    if (!may_carry(pid.record.number, section.table_id())) {
        faults_.add(pid.record.fault(FaultKind::kTableId), now_);
        return;
    }
    const std::optional<TableKind> kind = kind_of(pid.record.number, section.table_id());
    if (!kind || !refreshes(*kind, section)) return;

    const bool is_pmt = *kind == TableKind::kPmt;
    if (is_pmt) check_announcement(pid);
    const TableKey key{*kind, is_pmt ? section.extension() : std::uint16_t{0}};
    TableRecord* const table = find_or_add(pid.record, key);
    if (table == nullptr) return;
    const TableRecord::Arrival arrival = table->add(section, begun, now_);
    if (const auto limit = table_info(*kind).repetition_limit_ns)
        least_limit_ = std::min(least_limit_.value_or(*limit), *limit);
    const bool is_stray = is_pmt && !table->is_announced();
    if (arrival.interval && series_ && !is_stray)
        series_->intervals[{pid.record.number, key}].add(now_ - series_->start,
                                                         *arrival.interval);
    if (arrival.is_changed) has_new_tables_ = true;
    if (*kind == TableKind::kCat) cat_check_.restart();
    if (*kind == TableKind::kTdt) tdt_check_.add(*table->utc(), now_);
    if (*kind != TableKind::kPat) return;
    pat_alternation_.add(section.extension(), section.version(), now_);
    if (arrival.is_changed && table->is_complete()) pat_changed_ = now_;
    follow_pat();
}

// Called when a PMT has come on the PID.
void StreamStatistics::check_announcement(Pid& pid) {
    const bool has_pat = pids_.at(kPatPid).tables.at({TableKind::kPat}).is_complete();
    if (pid.has_to_carry_tables || !has_pat) {
        pid.unannounced_since.reset();
        return;
    }
    if (!pid.unannounced_since) pid.unannounced_since = now_;
    if (pat_changed_ || now_ - *pid.unannounced_since <= kUnannouncedLimitNs) return;
    faults_.add(pid.record.fault(FaultKind::kUnannouncedPmt), now_);
}

// If the PAT in force has changed, expects the PMTs that it announces, and no others.
void StreamStatistics::follow_pat() {
    if (!pat_changed_) return;
    if (pat_followed_ && now_ - *pat_followed_ < kLeastFollowIntervalNs) return;
    const auto pat = decode_table<orvel::thrift::dvb_tables::PAT>(
        pids_.at(kPatPid).tables.at({TableKind::kPat}).contents());
    if (!pat) return;
    pat_followed_ = now_;
    announced_.clear();
    for (const auto& program : pat->programs) {
        if (program.program_number == 0) continue;  // gives the network PID
        announced_.emplace(static_cast<std::uint16_t>(program.pid),
                           static_cast<std::uint16_t>(program.program_number));
    }
    withdraw_unannounced(*std::exchange(pat_changed_, std::nullopt));
    for (const auto& [number, service_id] : announced_) {
        const Pid& pid = expect_tables(number);
        TableRecord& pmt = *find_or_add(pid.record, {TableKind::kPmt, service_id});
        if (!pmt.is_announced()) pmt.expect(now_);
    }
}

// The report keeps tables that have come, up to kMaxUnannouncedTables.
void StreamStatistics::withdraw_unannounced(std::int64_t since) {
    unannounced_tables_ = 0;
    for (auto& [number, pid] : pids_) {
        if (table_on(number) == nullptr) followed_.at(number).has_to_carry_tables = false;
        for (auto at = pid.tables.begin(); at != pid.tables.end();) {
            auto& [key, table] = *at;
            bool is_kept = true;
            if (is_unannounced(number, key)) {
                if (table.is_announced()) table.withdraw(since);
                is_kept =
                    table.sections() > 0 && unannounced_tables_ < kMaxUnannouncedTables;
                if (is_kept) ++unannounced_tables_;
            }
            at = is_kept ? std::next(at) : pid.tables.erase(at);
        }
    }
}
