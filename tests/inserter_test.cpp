#include "tools/kestan-insert/inserter.h"

#include <ostream>

#include <gmock/gmock.h>

#include "tests/support/packets.h"
#include "tests/support/sections.h"
#include "tools/json/number_text.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A datagram of packets.
struct Packets {
    std::string bytes;

    Packets operator+(const Packets& next) const { return {bytes + next.bytes}; }
    bool operator==(const Packets& other) const { return bytes == other.bytes; }
    friend std::ostream& operator<<(std::ostream& out, const Packets& packets) {
        for (std::size_t at = 0; at < packets.bytes.size(); at += kTsPacketSize)
            out << to_hex(packets.bytes.substr(at, kTsHeaderSize)) << ' '
                << packets.bytes.substr(at + kTsHeaderSize, 10) << ", ";
        return out;
    }
};

Packets packet(int pid, int counter, const std::string& payload) {
    return {ts_packet(pid, counter, payload)};
}
Packets pat(int counter, const std::string& payload) {
    return packet(kPatPid, counter, payload);
}
Packets sdt(int counter, const std::string& payload) {
    return packet(kSdtPid, counter, payload);
}
// Takes the section's hexadecimal digits but for its length and CRC_32.
Packets section(int pid, int counter, const char* hex) {
    return {section_packets({sealed(*from_hex(hex))}, pid, counter)};
}
// A packet with a PCR alone.
Packets pcr(int pid) {
    return {ts_packet(pid, 0, "\x07\x10", kHasAdaptation)};
}

const Packets kNull{ts_packet(kNullPid, 0)};

constexpr int kPmtPid = 0x0100;
constexpr int kKeptPid = 0x0012;

class InserterTest : public testing::Test {
protected:
    void push_tables(std::int64_t ms, const Packets& datagram) {
        const std::string& bytes = datagram.bytes;
        inserter_.push_tables(ms * kNsPerMs, bytes_of(bytes), bytes.size());
    }

    // Returns what leaves.
    Packets pass(std::int64_t ms, Packets datagram) {
        auto* const data = reinterpret_cast<std::uint8_t*>(datagram.bytes.data());
        inserter_.fill(ms * kNsPerMs, data, datagram.bytes.size());
        return datagram;
    }

    std::vector<std::string> said_;
    Inserter inserter_{
        {kKeptPid}, 0, [this](auto, const auto& text) { said_.push_back(text); }};
    const InsertionRecord& record_ = inserter_.record();
};

TEST_F(InserterTest, FillsSlotsInOrderAndChangesNothingElse) {
    push_tables(0, pat(2, "before INPUT"));
    EXPECT_EQ(pass(0, kNull), kNull);
    push_tables(1, pat(3, "pat") + packet(kKeptPid, 0, "kept out") + sdt(9, "sdt"));
    push_tables(2, pat(4, "pat2"));
    const Packets odd_null = packet(kNullPid, 7, "stuffing");
    const Packets video = packet(0x0101, 5, "video");
    const Packets others = packet(0x0010, 1, "nit") + packet(kKeptPid, 6, "kept");
    EXPECT_EQ(pass(3, video + odd_null + others + kNull + video),
              video + pat(3, "pat") + others + sdt(9, "sdt") + video);
    EXPECT_EQ(pass(7, odd_null + odd_null + video), pat(4, "pat2") + odd_null + video);
    EXPECT_EQ(record_.inserted, 3);
    EXPECT_EQ(record_.longest_wait, 5 * kNsPerMs);
    EXPECT_EQ(record_.all_waits, (2 + 2 + 5) * kNsPerMs);
    EXPECT_EQ(record_.null_packets_left, 2);
    EXPECT_EQ(record_.kept_out, 1);
    EXPECT_EQ(record_.dropped.total(), 0);
    EXPECT_THAT(said_, ElementsAre());
}

TEST_F(InserterTest, SkipsRepeatsAndContinuesTheCounterOfWhatLeftLastOnThePid) {
    EXPECT_EQ(pass(0, sdt(14, "old")), sdt(14, "old"));
    push_tables(1, sdt(3, "a") + sdt(3, "a") + sdt(6, "b") + pat(7, "c"));
    EXPECT_EQ(pass(2, kNull + kNull + kNull + kNull),
              sdt(15, "a") + sdt(0, "b") + pat(7, "c") + kNull);
    EXPECT_EQ(record_.lost, 2);
    push_tables(900, sdt(7, "dropped"));
    push_tables(2000, sdt(0, "restarted"));
    EXPECT_EQ(pass(2001, kNull), sdt(1, "restarted"));
    EXPECT_EQ(record_.lost, 2 + 8);  // the counter went from 7 to 0
    EXPECT_EQ(record_.pids.at(kSdtPid).lost, 10);
}

TEST_F(InserterTest, TakesAPidFromTheEncoderUntilKestanIsSilentForFiveSeconds) {
    const Packets theirs = packet(kTdtPid, 1, "theirs");
    const Packets ours = packet(kTdtPid, 0, "ours");
    EXPECT_EQ(pass(0, theirs), theirs);
    push_tables(1000, ours);
    EXPECT_EQ(pass(1001, theirs + theirs), packet(kTdtPid, 2, "ours") + kNull);
    EXPECT_EQ(pass(6000, theirs), kNull);
    EXPECT_EQ(pass(6001, theirs), theirs);
    EXPECT_EQ(record_.pids.at(kTdtPid).replaced, 3);
    inserter_.advance(6001 * kNsPerMs);
    inserter_.advance(7001 * kNsPerMs);
    EXPECT_THAT(said_, ElementsAre("nothing has come from TABLES for 5 s: the tables of "
                                   "INPUT pass"));
    EXPECT_TRUE(record_.tables.is_silent);
    push_tables(8000, ours);
    EXPECT_FALSE(record_.tables.is_silent);
    EXPECT_EQ(said_.size(), 2);
    EXPECT_EQ(record_.tables.silences, 1);
}

TEST_F(InserterTest, RemovesTheEncodersPmtsWhileKestanPlaysAPat) {
    const Packets their_pat =
        section(kPatPid, 0, "00 b000 0001 c3 0000 0000e200 0001e100 0002e01f");
    const Packets their_pmt = packet(kPmtPid, 1, "pmt");
    const Packets others = packet(0x0200, 1, "nit") + packet(0x001F, 1, "low") +
                           packet(0x0300, 1, "not announced");
    Packets broken_pat = section(kPatPid, 1, "00 b000 0001 c5 0000 0001e300");
    broken_pat.bytes[20] ^= 1;
    const char* const our_pat = "00 b000 0001 cf 0000 0001e400";

    push_tables(0, sdt(0, "sdt"));
    EXPECT_EQ(pass(1, their_pat + their_pmt + broken_pat),
              their_pat + their_pmt + broken_pat);
    push_tables(2, section(kPatPid, 0, our_pat));
    EXPECT_EQ(pass(3, their_pmt + others + their_pat + kNull),
              section(kPatPid, 2, our_pat) + others + kNull + kNull);
    EXPECT_EQ(record_.pids.at(kPmtPid).replaced, 1);
    // A new PAT announces other PIDs with its first section, even if it has the version
    // of the last one.
    const Packets new_pat = section(kPatPid, 1, "00 b000 0001 c3 0001 0001e300");
    EXPECT_EQ(pass(4, new_pat + their_pmt + packet(0x0300, 1, "announced")),
              kNull + their_pmt + kNull);
}

TEST_F(InserterTest, NeverFillsAPacketOfAStream) {
    pass(0, kNull + pcr(0x0121) +
                Packets{with_start(ts_packet(0x0122, 0, {"\0\0\1\xE0", 4}))} +
                Packets{with_error(pcr(0x0123).bytes)});
    push_tables(1, section(kPatPid, 0, "00 b000 0001 c3 0000 0001e100") +
                       section(kPmtPid, 0,
                               "02 b000 0001 c1 0000 ffff f006 0904 0102e110"
                               "06 e111 f006 0904 0102e112") +
                       section(kCatPid, 0, "01 b000 ffff c1 0000 0904 0102e113"));
    pass(2, kNull + kNull + kNull);

    push_tables(3, sdt(0, "sdt"));
    EXPECT_EQ(pass(3, pcr(kNullPid) + kNull), pcr(kNullPid) + sdt(0, "sdt"));
    std::size_t said = 0;
    for (const int pid : {0x0110, 0x0111, 0x0112, 0x0113, 0x0121, 0x0122}) {
        const Packets theirs = packet(pid, 4, "theirs");
        push_tables(4, packet(pid, 0, "table") + packet(pid, 1, "table"));
        EXPECT_EQ(pass(5, theirs + kNull), theirs + kNull);
        ASSERT_EQ(said_.size(), ++said);
        EXPECT_THAT(said_.back(), HasSubstr("is that of a stream"));
    }
    EXPECT_EQ(record_.dropped.stream_pid, 12);
    // Bit errors prove nothing.
    push_tables(4, packet(0x0123, 0, "table"));
    EXPECT_EQ(pass(5, packet(0x0123, 4, "theirs")), packet(0x0123, 1, "table"));
    // What no table on air has named for 5 s may be a table's.
    push_tables(5003, packet(0x0111, 0, "table"));
    EXPECT_EQ(pass(5004, packet(0x0111, 4, "theirs")), packet(0x0111, 5, "table"));
}

TEST_F(InserterTest, InsertsNothingIntoLateRtpDatagrams) {
    const Packets theirs = sdt(0, "theirs");
    pass(0, Packets{rtp_header(8)} + theirs);
    push_tables(1, sdt(0, "ours") + sdt(1, "ours"));
    const std::pair<int, Packets> cases[] = {
        {9, sdt(1, "ours")}, {9, kNull}, {8, kNull}, {10, sdt(2, "ours")}};
    for (const auto& [number, expected] : cases) {
        const Packets header{rtp_header(static_cast<std::uint64_t>(number))};
        EXPECT_EQ(pass(2, header + theirs), header + expected);
    }
}

TEST_F(InserterTest, DropsTheWholeQueueWithoutRoom) {
    pass(0, kNull);
    push_tables(1, pat(0, "a") + pat(1, "b"));
    push_tables(1000, pat(2, "c"));
    EXPECT_EQ(pass(1001, kNull), pat(0, "a"));
    EXPECT_EQ(pass(1002, kNull), kNull);
    EXPECT_EQ(record_.dropped.no_room, 2);
    inserter_.advance(2000 * kNsPerMs);
    EXPECT_THAT(said_, ElementsAre(HasSubstr("2 packets of TABLES dropped; INPUT has 1 "
                                             "null packets a second")));
    push_tables(2000, pat(3, "d"));
    push_tables(3001, pat(4, "e"));
    EXPECT_EQ(record_.dropped.no_room, 3);
    EXPECT_EQ(record_.pids.at(kPatPid).dropped, 3);

    for (int i = 1; i < 8191; ++i) push_tables(3002, pat(4 + i, "f"));
    EXPECT_EQ(record_.dropped.no_room, 3);
    push_tables(3003, pat(3, "g") + pat(4, "h"));
    EXPECT_EQ(record_.dropped.no_room, 3 + 8192);
    EXPECT_EQ(record_.lost, 0);
}

TEST_F(InserterTest, SaysOnceThatBothPatsHaveOneVersionAndDiffer) {
    const Packets theirs = section(kPatPid, 0, "00 b000 0001 c9 0000 0001e100");
    pass(0, theirs);
    push_tables(1, theirs);
    push_tables(1, section(kPatPid, 1, "00 b000 0001 cb 0000 0001e400"));
    EXPECT_EQ(said_.size(), 0);
    for (const int counter : {2, 3})
        push_tables(1, section(kPatPid, counter, "00 b000 0001 c9 0000 0001e400"));
    EXPECT_THAT(said_, ElementsAre(HasSubstr("same version_number")));
}

TEST_F(InserterTest, PassesWhatIsNoTransportStreamAndTakesNoneFromTables) {
    const Packets rubbish{std::string(1000, 'x')};
    EXPECT_EQ(pass(0, rubbish), rubbish);
    push_tables(1, rubbish);
    push_tables(1, rubbish);
    Packets torn = kNull;  // a packet without a sync byte is none
    torn.bytes[0] = 'x';
    push_tables(1, Packets{with_error(ts_packet(kPatPid, 0))} + kNull);
    push_tables(1, torn + kNull);
    EXPECT_EQ(record_.input.malformed, 1);
    EXPECT_EQ(record_.dropped.malformed, 2);
    EXPECT_EQ(record_.dropped.damaged, 2);
    EXPECT_EQ(record_.dropped.null_packet, 2);
    EXPECT_EQ(said_.size(), 3);
    push_tables(1, pat(0, "a"));
    EXPECT_EQ(pass(2, torn + kNull), torn + pat(0, "a"));
    // The code behind a packet of 204 bytes stays.
    push_tables(3, pat(1, "b"));
    const Packets code{std::string(16, 'c')};
    EXPECT_EQ(pass(3, kNull + code + kNull + code), pat(1, "b") + code + kNull + code);
}

}  // namespace
