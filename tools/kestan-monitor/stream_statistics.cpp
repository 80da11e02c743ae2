#include "tools/kestan-monitor/stream_statistics.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>

#include "dvb/nanoseconds.h"
#include "dvb/psi_si.h"

namespace {

constexpr std::uint16_t kNullPid = 0x1FFF;  // ISO/IEC 13818-1, table 2-3
constexpr std::ptrdiff_t kUtcTimeSize = 5;  // ETSI EN 300 468, 5.2.5

// What the PIDs with a fixed use may carry (ETSI TR 101 290, 1.3, 2.6, 3.5, 3.8); any
// other may carry anything.
bool may_carry(std::uint16_t pid, std::uint8_t table_id) {
    const auto is_one_of = [&](std::initializer_list<std::uint8_t> allowed) {
        return std::find(allowed.begin(), allowed.end(), table_id) != allowed.end();
    };
    if (pid == kPatPid) return is_one_of({kPatTableId});
    if (pid == kCatPid) return is_one_of({kCatTableId});
    if (pid == kSdtPid) return is_one_of({kSdtActualTableId, 0x46, 0x4A, 0x72});
    if (pid == kTdtPid) return is_one_of({kTdtTableId, 0x72, 0x73});
    return true;
}

// The table that sections of `table_id` on `pid` belong to, if it is one that is
// followed.
std::optional<TableKind> kind_of(std::uint16_t pid, std::uint8_t table_id) {
    if (pid == kPatPid && table_id == kPatTableId) return TableKind::pat;
    if (pid == kCatPid && table_id == kCatTableId) return TableKind::cat;
    if (pid == kSdtPid && table_id == kSdtActualTableId) return TableKind::sdt;
    if (pid == kTdtPid && table_id == kTdtTableId) return TableKind::tdt;
    if (table_id == kPmtTableId) return TableKind::pmt;
    return std::nullopt;
}

// Whether it is a section of such a table, and one that is in force.
bool refreshes(TableKind kind, const dvbpsi_psi_section_t& section) {
    const bool is_long = section.b_syntax_indicator;
    const std::ptrdiff_t size = section.p_payload_end - section.p_payload_start;
    if (kind == TableKind::tdt) return !is_long && size == kUtcTimeSize;
    return is_long && size >= 0 && section.b_current_next;
}

int from_bcd(std::uint8_t byte) {
    return (byte >> 4) * 10 + (byte & 0x0F);
}

std::string utc_text(const std::uint8_t* utc_time) {
    const std::int64_t days = (utc_time[0] << 8 | utc_time[1]) - kMjdOfEpoch;
    const std::time_t seconds = days * kSecondsPerDay;
    std::tm date{};
    gmtime_r(&seconds, &date);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d",
                  date.tm_year + 1900, date.tm_mon + 1, date.tm_mday,
                  from_bcd(utc_time[2]), from_bcd(utc_time[3]), from_bcd(utc_time[4]));
    return text.data();
}

bool is_whole_packets(const std::uint8_t* datagram, std::size_t size) {
    if (size == 0 || size % kTsPacketSize != 0) return false;
    for (std::size_t at = 0; at < size; at += kTsPacketSize) {
        if (datagram[at] != kSyncByte) return false;
    }
    return true;
}

double bits(std::uint64_t packets) {
    return static_cast<double>(packets * kTsPacketBits);
}

double per_second(double amount, std::int64_t duration) {
    if (duration <= 0) return 0;
    return amount * static_cast<double>(kNsPerSecond) / static_cast<double>(duration);
}

}  // namespace

StreamStatistics::StreamStatistics() {
    pat_collector_.emplace();
    table_pid(kPatPid).tables[{TableKind::pat, 0}];
    table_pid(kCatPid);
    table_pid(kSdtPid).tables[{TableKind::sdt, 0}];
    table_pid(kTdtPid).tables[{TableKind::tdt, 0}];
}

StreamStatistics::~StreamStatistics() = default;

void StreamStatistics::begin(std::int64_t now) {
    start_ = now;
    now_ = now;
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) table.repetition.expect(now);
    }
}

StreamStatistics::Pid& StreamStatistics::pid(std::uint16_t number) {
    Pid& found = pids_[number];
    found.number = number;
    return found;
}

StreamStatistics::Pid& StreamStatistics::table_pid(std::uint16_t number) {
    Pid& found = pid(number);
    if (!found.collector) {
        found.collector = std::make_unique<SectionCollector>(
            [this, &found](const dvbpsi_psi_section_t& section) {
                on_section(found, section);
            });
    }
    return found;
}

void StreamStatistics::push(std::int64_t arrival, const std::uint8_t* datagram,
                            std::size_t size) {
    if (!start_) begin(arrival);
    now_ = std::max(now_, arrival);
    ++totals_.datagrams;
    if (!is_whole_packets(datagram, size)) {
        ++totals_.malformed_datagrams;
        return;
    }
    const std::size_t packets = size / kTsPacketSize;
    totals_.packets += packets;
    totals_.packets_per_datagram.add(static_cast<std::int64_t>(packets));
    count_in_peak(packets);
    for (std::size_t i = 0; i < packets; ++i) push_packet(datagram + i * kTsPacketSize);
}

void StreamStatistics::count_in_peak(std::size_t packets) {
    window_.emplace_back(now_, packets);
    window_packets_ += packets;
    while (window_.front().first <= now_ - kPeakWindowNs) {
        window_packets_ -= window_.front().second;
        window_.pop_front();
    }
    peak_packets_ = std::max(peak_packets_, window_packets_);
}

void StreamStatistics::push_packet(const std::uint8_t* packet) {
    const auto number = pid_of(packet);
    Pid& on = pid(number);
    ++on.packets;
    if (number == kNullPid) return;
    on.continuity.push(packet);
    if (!on.collector) return;

    const bool has_remainder = on.collector->is_collecting() && packet[4] != 0;
    if (starts_section(packet) && !has_remainder) on.section_start = now_;
    if (number == kPatPid) pat_collector_->push(packet);
    on.collector->push(packet);
}

void StreamStatistics::on_section(Pid& on, const dvbpsi_psi_section_t& section) {
    // Whatever follows in this packet begins now.
    const std::int64_t start = std::exchange(on.section_start, now_);
    if (!may_carry(on.number, section.i_table_id)) {
        ++on.wrong_table_ids;
        return;
    }
    const std::optional<TableKind> kind = kind_of(on.number, section.i_table_id);
    if (!kind || !refreshes(*kind, section)) return;

    const bool is_pmt = *kind == TableKind::pmt;
    Table& table = on.tables[{*kind, is_pmt ? section.i_extension : std::uint16_t{0}}];
    ++table.sections;
    table.repetition.add(section.i_number, section.i_last_number, now_);
    if (table.last_end) table.section_gaps.add(start - *table.last_end);
    table.last_end = now_;
    if (*kind == TableKind::tdt) {
        table.utc = utc_text(section.p_payload_start);
    } else if (changes_unversioned(table, section)) {
        ++table.unversioned_changes;
        // Its decoder would see nothing new.
        if (*kind == TableKind::pat) pat_collector_.emplace();
    }
    if (*kind == TableKind::pat && section.i_number == section.i_last_number)
        follow_pat();
}

bool StreamStatistics::changes_unversioned(Table& table,
                                           const dvbpsi_psi_section_t& section) {
    if (std::exchange(table.version, section.i_version) != section.i_version)
        table.crcs.clear();
    std::uint32_t crc = 0;
    std::memcpy(&crc, section.p_payload_end, sizeof crc);
    const auto [known, is_new] = table.crcs.emplace(section.i_number, crc);
    return !is_new && std::exchange(known->second, crc) != crc;
}

// Expects the PMTs of the PAT in force, and no others.
void StreamStatistics::follow_pat() {
    const auto& found = pat_collector_->pat();
    if (!found || !found->current_next_indicator || found == pat_) return;
    pat_ = found;

    std::set<std::pair<std::uint16_t, std::uint16_t>> announced;  // PIDs and service_ids
    for (const auto& program : pat_->programs) {
        if (program.program_number == 0) continue;  // gives the network PID
        announced.emplace(static_cast<std::uint16_t>(program.pid),
                          static_cast<std::uint16_t>(program.program_number));
    }
    for (auto& [number, pid] : pids_) {
        for (auto& [key, table] : pid.tables) {
            if (key.first == TableKind::pmt && announced.count({number, key.second}) == 0)
                table.repetition.withdraw(now_);
        }
    }
    for (const auto& [number, service_id] : announced) {
        Table& pmt = table_pid(number).tables[{TableKind::pmt, service_id}];
        if (!pmt.repetition.expected()) pmt.repetition.expect(now_);
    }
}

TableFigures StreamStatistics::figures_of(TableKind kind, std::uint16_t service_id,
                                          const Table& table, std::int64_t now) {
    TableFigures figures;
    figures.kind = kind;
    figures.service_id = service_id;
    figures.in_pat = kind == TableKind::pmt && table.repetition.expected();
    figures.sections = table.sections;
    figures.version = table.version;
    figures.unversioned_changes = table.unversioned_changes;
    figures.utc = table.utc;
    figures.repetition = table.repetition.figures(now);
    figures.section_gaps = table.section_gaps;
    return figures;
}

StreamFigures StreamStatistics::figures(std::int64_t now) const {
    StreamFigures figures = totals_;
    figures.duration = start_ ? now - *start_ : 0;
    figures.bit_rate = per_second(bits(figures.packets), figures.duration);
    figures.peak_bit_rate = per_second(bits(peak_packets_), kPeakWindowNs);
    for (const auto& [number, pid] : pids_) {
        if (pid.packets == 0 && pid.tables.empty()) continue;
        PidFigures& on = figures.pids.emplace_back();
        on.pid = number;
        on.packets = pid.packets;
        on.bit_rate = per_second(bits(pid.packets), figures.duration);
        on.continuity_errors = pid.continuity.errors();
        on.crc_errors = pid.collector ? pid.collector->crc_errors() : 0;
        on.wrong_table_ids = pid.wrong_table_ids;
        for (const auto& [key, table] : pid.tables) {
            on.tables.push_back(figures_of(key.first, key.second, table, now));
            figures.jitter.add(on.tables.back().repetition.jitter);
        }
    }
    return figures;
}
