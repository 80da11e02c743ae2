#include "tools/kestan-insert/inserter.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/receive/packet_flags.h"

namespace {

constexpr std::int64_t kLongestWaitNs = kNsPerSecond;
constexpr std::size_t kLongestQueue = 8192;  // packets

// Payload alone (ISO/IEC 13818-1, 2.4.1 and 2.4.3.3); the counter has no meaning.
void make_null_packet(std::uint8_t* packet) {
    packet[0] = kSyncByte;
    packet[1] = static_cast<std::uint8_t>(kNullPid >> 8);
    packet[2] = static_cast<std::uint8_t>(kNullPid & 0xFF);
    packet[3] = kHasPayload;
    std::fill_n(packet + kTsHeaderSize, kTsPacketSize - kTsHeaderSize, kStuffingByte);
}

std::uint8_t next_counter(std::uint8_t counter, const std::uint8_t* packet) {
    return static_cast<std::uint8_t>((counter + has_payload(packet)) & kContinuityMask);
}

}  // namespace

Inserter::Inserter(const std::set<std::uint16_t>& kept, std::int64_t now, Say say)
    : say_(std::move(say)), pid_use_(kept), left_(kMaxPid + 1), second_began_(now) {
    record_.input.last = record_.tables.last = now;
}

std::optional<DatagramPackets> Inserter::find(std::int64_t now, StreamRecord& stream,
                                              const std::uint8_t* datagram,
                                              std::size_t size) {
    if (stream.is_silence_said)
        say_(Severity::kInformation, fmt::format("{} comes", stream.name));
    stream.is_silent = false;
    stream.is_silence_said = false;
    stream.last = now;
    ++stream.datagrams;
    const auto packets = find_packets(datagram, size);
    if (packets) {
        stream.packets += packets->count;
        stream.in_rtp = packets->in_rtp;
        return packets;
    }
    ++stream.malformed;
    warn_once(fmt::format("a datagram of {} is not made of whole transport packets",
                          stream.name));
    return packets;
}

void Inserter::push_tables(std::int64_t now, const std::uint8_t* datagram,
                           std::size_t size) {
    const auto packets = find(now, record_.tables, datagram, size);
    if (!packets) ++record_.dropped.malformed;
    for (std::size_t i = 0; packets && i < packets->count; ++i) {
        push_table_packet(now, packets->packet(i));
    }
    if (pid_use_.do_pats_contradict()) {
        warn_once(
            "the PATs of INPUT and TABLES differ and have the same version_number: "
            "receivers that are tuned ignore the new one; raise the version_number "
            "of Kestan's tables");
    }
}

void Inserter::push_table_packet(std::int64_t now, const std::uint8_t* packet) {
    drop_old_queue(now);
    const std::uint16_t pid = pid_of(packet);
    if (packet[0] != kSyncByte || has_transport_error(packet)) {
        ++record_.dropped.damaged;
    } else if (pid == kNullPid) {
        ++record_.dropped.null_packet;
        warn_once("TABLES has null packets, which are dropped: is it Kestan's stream?");
    } else if (pid_use_.is_kept(pid)) {
        ++record_.kept_out;
    } else {
        pid_use_.note_tables(now, packet);
        if (is_repeat(packet) || !may_insert(now, pid)) return;
        ++table_packets_;
        if (record_.input.is_silent) return;
        TablePacket& added = queue_.emplace_back();
        added.arrival = now;
        std::copy_n(packet, kTsPacketSize, added.bytes.begin());
    }
}

// Returns whether the packet is an exact repeat of the one before on its PID: it carries
// nothing new. Counts the packets that are missing before it.
bool Inserter::is_repeat(const std::uint8_t* packet) {
    ContinuityCheck& check = table_pids_[pid_of(packet)];
    const Continuity continuity = check.push(packet);
    if (continuity == Continuity::kBroken) {
        record_.lost += check.missing();
        record_.pids[pid_of(packet)].lost += check.missing();
    }
    return continuity == Continuity::kRepeat;
}

// Returns whether packets of TABLES may be inserted on the PID. Counts one that may not.
bool Inserter::may_insert(std::int64_t now, std::uint16_t pid) {
    if (!pid_use_.is_stream(now, pid)) return true;
    ++record_.dropped.stream_pid;
    ++record_.pids[pid].dropped;
    warn_once(
        fmt::format("PID 0x{:04X} is that of a stream of INPUT: TABLES' packets on it "
                    "are dropped; give Kestan's table another PID",
                    pid));
    return false;
}

void Inserter::drop_old_queue(std::int64_t now) {
    if (queue_.empty() ||
        (now - queue_.front().arrival <= kLongestWaitNs && queue_.size() < kLongestQueue))
        return;
    dropped_ += queue_.size();
    record_.dropped.no_room += queue_.size();
    for (const TablePacket& packet : queue_) {
        ++record_.pids[pid_of(packet.bytes.data())].dropped;
    }
    queue_.clear();
}

std::optional<DatagramPackets> Inserter::fill(std::int64_t now, std::uint8_t* datagram,
                                              std::size_t size) {
    drop_old_queue(now);
    const auto packets = find(now, record_.input, datagram, size);
    if (!packets) return packets;
    const std::optional<int> ahead =
        packets->in_rtp ? rtp_order_.push(datagram) : std::nullopt;
    const bool is_late = ahead && *ahead <= 0;
    for (std::size_t i = 0; i < packets->count; ++i) {
        take_packet(now, datagram + (packets->packet(i) - datagram), is_late);
    }
    return packets;
}

void Inserter::take_packet(std::int64_t now, std::uint8_t* packet, bool is_late) {
    if (packet[0] != kSyncByte) return;
    pid_use_.note_input(packet);
    if (pid_use_.is_slot(now, packet)) fill_slot(now, packet, is_late);
    const std::uint16_t pid = pid_of(packet);
    if (pid == kNullPid) {
        ++record_.null_packets_left;
    } else {
        left_[pid] = continuity_counter_of(packet);
        pid_use_.note_leaving(now, packet);
    }
}

void Inserter::fill_slot(std::int64_t now, std::uint8_t* packet, bool is_late) {
    const std::uint16_t pid = pid_of(packet);
    ++slots_;
    if (pid != kNullPid) ++record_.pids[pid].replaced;
    const bool is_inserted = !is_late && insert_next(now, packet);
    if (!is_inserted && pid != kNullPid) make_null_packet(packet);
}

// Replaces `packet` by the next packet of TABLES. Returns false if there is none.
bool Inserter::insert_next(std::int64_t now, std::uint8_t* packet) {
    while (!queue_.empty() && !may_insert(now, pid_of(queue_.front().bytes.data())))
        queue_.pop_front();
    if (queue_.empty()) return false;
    const std::int64_t wait = now - queue_.front().arrival;
    std::copy_n(queue_.front().bytes.begin(), kTsPacketSize, packet);
    queue_.pop_front();
    const std::uint16_t pid = pid_of(packet);
    if (left_[pid]) {
        packet[3] = static_cast<std::uint8_t>((packet[3] & ~kContinuityMask) |
                                              next_counter(*left_[pid], packet));
    }
    ++record_.inserted;
    ++record_.pids[pid].inserted;
    record_.all_waits += wait;
    record_.longest_wait = std::max(record_.longest_wait, wait);
    return true;
}

void Inserter::advance(std::int64_t now) {
    const auto ms = static_cast<std::uint64_t>(
        std::max<std::int64_t>((now - second_began_) / kNsPerMs, 1));
    if (dropped_ != 0) {
        say_(Severity::kWarning,
             fmt::format(
                 "no room: {} packets of TABLES dropped; INPUT has {} null packets a "
                 "second (with the tables that Kestan replaces), TABLES needs {}: "
                 "raise the bit rate of INPUT",
                 dropped_, slots_ * 1000 / ms, table_packets_ * 1000 / ms));
    }
    second_began_ = now;
    slots_ = table_packets_ = dropped_ = 0;
    notice_silence(now, record_.input);
    notice_silence(now, record_.tables);
}

void Inserter::notice_silence(std::int64_t now, StreamRecord& stream) {
    if (stream.is_silence_said || now - stream.last < kSilenceNs) return;
    if (stream.datagrams != 0) ++stream.silences;
    stream.is_silent = stream.is_silence_said = true;
    say_(Severity::kWarning, fmt::format("nothing has come from {} for 5 s: {}",
                                         stream.name, stream.consequence));
}

void Inserter::warn_once(const std::string& message) {
    if (said_.insert(message).second) say_(Severity::kWarning, message);
}
