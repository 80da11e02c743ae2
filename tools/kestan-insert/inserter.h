#ifndef KESTAN_TOOLS_KESTAN_INSERT_INSERTER_H
#define KESTAN_TOOLS_KESTAN_INSERT_INSERTER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dvb/psi_si.h"
#include "dvb/ts_packet.h"
#include "tools/kestan-insert/insertion_record.h"
#include "tools/kestan-insert/pid_use.h"
#include "tools/model/severity.h"
#include "tools/receive/continuity_check.h"
#include "tools/receive/datagram_packets.h"
#include "tools/receive/rtp_order.h"

// Puts the packets of TABLES, which is Kestan's stream, into the slots of INPUT, which is
// an encoder's; PidUse says what a slot is. Nothing else of INPUT changes.
//
// A slot takes the oldest packet of TABLES, or becomes a null packet if there is none. An
// inserted packet gets the continuity_counter after that of the packet that left last on
// its PID. The packets of TABLES wait in a queue. If the oldest has waited for more than
// a second, the whole queue is dropped, so that the tables on air are never old.
//
// Times are int64 nanoseconds of the steady clock. Memory is bounded. One thread.
class Inserter {
public:
    // Takes a message for the user, of one line.
    using Say = std::function<void(Severity, const std::string& message)>;

    // INPUT's packets on the PIDs of `kept` pass, and TABLES' are dropped. REQUIRES: none
    // is that of null packets.
    Inserter(const std::set<std::uint16_t>& kept, std::int64_t now, Say say);

    // Takes a datagram of TABLES, of any content, that came at `now`.
    void push_tables(std::int64_t now, const std::uint8_t* datagram, std::size_t size);

    // Fills the slots of a datagram of INPUT, of any content, in place. Returns its
    // packets, or nullopt if it is malformed and stays as it is.
    std::optional<DatagramPackets> fill(std::int64_t now, std::uint8_t* datagram,
                                        std::size_t size);

    // Notices silences, and says whether there was room. Call it once a second.
    void advance(std::int64_t now);

    [[nodiscard]] const InsertionRecord& record() const { return record_; }

private:
    struct TablePacket {
        std::int64_t arrival;
        std::array<std::uint8_t, kTsPacketSize> bytes;
    };

    std::optional<DatagramPackets> find(std::int64_t now, StreamRecord& stream,
                                        const std::uint8_t* datagram, std::size_t size);
    void push_table_packet(std::int64_t now, const std::uint8_t* packet);
    bool is_repeat(const std::uint8_t* packet);
    bool may_insert(std::int64_t now, std::uint16_t pid);
    void drop_old_queue(std::int64_t now);
    void take_packet(std::int64_t now, std::uint8_t* packet, bool is_late);
    void fill_slot(std::int64_t now, std::uint8_t* packet, bool is_late);
    bool insert_next(std::int64_t now, std::uint8_t* packet);
    void notice_silence(std::int64_t now, StreamRecord& stream);
    void warn_once(const std::string& message);

    Say say_;
    PidUse pid_use_;
    InsertionRecord record_;
    RtpOrder rtp_order_;
    std::map<std::uint16_t, ContinuityCheck> table_pids_;  // to find repeats and losses
    std::deque<TablePacket> queue_;
    std::vector<std::optional<std::uint8_t>> left_;  // counters that left last, by PID

    // In the second that runs.
    std::int64_t second_began_;
    std::uint64_t slots_ = 0;
    std::uint64_t table_packets_ = 0;
    std::uint64_t dropped_ = 0;  // without room

    std::set<std::string> said_;  // what is to be said only once
};

#endif
