#include "tools/kestan-insert/inserter.h"

#include <numeric>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "dvb/psi_si.h"
#include "dvb/ts_packet.h"
#include "tests/support/sections.h"

using namespace orvel::thrift::dvb_tables;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr std::int64_t kMs = kNsPerMs;
constexpr std::uint16_t kTotPid = 0x0014;
constexpr std::uint16_t kPmtPid = 0x0100;
constexpr std::uint16_t kVideoPid = 0x0101;

struct Packet {
    std::string bytes;

    [[nodiscard]] const std::uint8_t* data() const {
        return reinterpret_cast<const std::uint8_t*>(bytes.data());
    }
    bool operator==(const Packet& other) const { return bytes == other.bytes; }
    friend std::ostream& operator<<(std::ostream& out, const Packet& packet) {
        return out << "PID " << pid_of(packet.data()) << " cc "
                   << int{continuity_counter_of(packet.data())} << ' '
                   << packet.bytes.substr(4, 6);
    }
};
using Packets = std::vector<Packet>;

Packet packet(std::uint16_t pid, int counter, const std::string& payload = "") {
    Packet made{std::string(4, '\x47') + payload};
    made.bytes[1] = static_cast<char>(pid >> 8);
    made.bytes[2] = static_cast<char>(pid);
    made.bytes[3] = static_cast<char>(kHasPayload | (counter & kContinuityMask));
    made.bytes.resize(kTsPacketSize, '\xFF');
    return made;
}

Packet null_packet() {
    return packet(kNullPid, 0);
}

Packet with_start(Packet packet) {
    packet.bytes[1] = static_cast<char>(packet.bytes[1] | kPayloadUnitStart);
    return packet;
}

Packet with_pcr(Packet packet) {
    packet.bytes[3] = static_cast<char>(packet.bytes[3] | kHasAdaptation);
    packet.bytes[4] = 7;
    packet.bytes[5] = 0x10;
    return packet;
}

Packet with_error(Packet packet) {
    packet.bytes[1] = static_cast<char>(packet.bytes[1] | 0x80);
    return packet;
}

Packet section_packet(std::uint16_t pid, int counter, const std::string& section) {
    return with_start(packet(pid, counter, '\0' + section));
}

Packet pat_packet(int counter, int version, const std::vector<PATProgram>& programs) {
    PAT pat;
    pat.transport_stream_id = 1;
    pat.version_number = version;
    pat.current_next_indicator = true;
    pat.programs = programs;
    return section_packet(kPatPid, counter, sections_of(pat).at(0));
}

PATProgram program(int number, int pid) {
    PATProgram made;
    made.program_number = number;
    made.pid = pid;
    return made;
}

Descriptor ca_descriptor(char pid_low) {
    Descriptor made;
    made.tag = 0x09;
    made.data = {'\x01', '\x02', '\xE1', pid_low};
    return made;
}

class InserterTest : public testing::Test {
protected:
    void push_tables(std::int64_t ms, const Packets& packets) {
        const std::string bytes = joined(packets, "");
        inserter_.push_tables(ms * kMs, reinterpret_cast<const std::uint8_t*>(&bytes[0]),
                              bytes.size());
    }

    // Returns what leaves.
    Packets pass(std::int64_t ms, const Packets& packets, const std::string& head = "") {
        const std::string bytes = pass_bytes(ms, joined(packets, head));
        EXPECT_EQ(bytes.substr(0, head.size()), head);
        Packets left;
        for (std::size_t at = head.size(); at < bytes.size(); at += kTsPacketSize) {
            left.push_back({bytes.substr(at, kTsPacketSize)});
        }
        return left;
    }

    std::string pass_bytes(std::int64_t ms, std::string datagram) {
        inserter_.fill(ms * kMs, reinterpret_cast<std::uint8_t*>(&datagram[0]),
                       datagram.size());
        return datagram;
    }

    static std::string joined(const Packets& packets, const std::string& head) {
        return std::accumulate(
            packets.begin(), packets.end(), head,
            [](std::string all, const Packet& next) { return all + next.bytes; });
    }

    [[nodiscard]] const InsertionRecord& record() const { return inserter_.record(); }

    std::vector<std::string> said_;
    Inserter inserter_{
        {0x0012}, 0, [this](auto, const auto& text) { said_.push_back(text); }};
};

TEST_F(InserterTest, FillsSlotsInOrderAndChangesNothingElse) {
    pass(0, {null_packet()});
    push_tables(1, {packet(kPatPid, 3, "pat"), packet(kSdtPid, 9, "sdt")});
    push_tables(2, {packet(kPatPid, 4, "pat2")});
    const Packet odd_null = packet(kNullPid, 7, "stuffing");
    const Packet video = packet(kVideoPid, 5, "video");
    EXPECT_THAT(
        pass(3, {video, odd_null, packet(0x0010, 1, "nit"), null_packet(), video}),
        ElementsAre(video, packet(kPatPid, 3, "pat"), packet(0x0010, 1, "nit"),
                    packet(kSdtPid, 9, "sdt"), video));
    EXPECT_THAT(pass(7, {odd_null, odd_null, video}),
                ElementsAre(packet(kPatPid, 4, "pat2"), odd_null, video));
    EXPECT_EQ(record().inserted, 3);
    EXPECT_EQ(record().longest_wait, 5 * kMs);
    EXPECT_EQ(record().all_waits, (2 + 2 + 5) * kMs);
    EXPECT_EQ(record().null_packets_left, 2);
    EXPECT_THAT(said_, ElementsAre());
}

TEST_F(InserterTest, ContinuesTheCounterOfWhatLeftLastOnThePid) {
    EXPECT_THAT(pass(0, {packet(kSdtPid, 14, "old")}),
                ElementsAre(packet(kSdtPid, 14, "old")));
    push_tables(1, {packet(kSdtPid, 3, "a"), packet(kSdtPid, 4, "b")});
    EXPECT_THAT(pass(2, {null_packet(), null_packet()}),
                ElementsAre(packet(kSdtPid, 15, "a"), packet(kSdtPid, 0, "b")));
    push_tables(900, {packet(kSdtPid, 5, "dropped")});
    push_tables(2000, {packet(kSdtPid, 0, "restarted")});
    EXPECT_THAT(pass(2001, {null_packet()}),
                ElementsAre(packet(kSdtPid, 1, "restarted")));
    EXPECT_EQ(record().lost, 10);  // the counter went from 5 to 0
}

TEST_F(InserterTest, TakesAPidFromTheEncoderUntilKestanIsSilentForFiveSeconds) {
    const Packet theirs = packet(kTotPid, 1, "theirs");
    EXPECT_THAT(pass(0, {theirs}), ElementsAre(theirs));
    push_tables(1000, {packet(kTotPid, 0, "ours")});
    EXPECT_THAT(pass(1001, {theirs, theirs}),
                ElementsAre(packet(kTotPid, 2, "ours"), null_packet()));
    EXPECT_THAT(pass(6000, {theirs}), ElementsAre(null_packet()));
    EXPECT_THAT(pass(6001, {theirs}), ElementsAre(theirs));
    EXPECT_EQ(record().pids.at(kTotPid).replaced, 3);
    inserter_.advance(6001 * kMs);
    inserter_.advance(7001 * kMs);
    EXPECT_THAT(said_, ElementsAre("nothing has come from TABLES for 5 s: the tables of "
                                   "INPUT pass"));
    EXPECT_TRUE(record().tables.is_silent);
    push_tables(8000, {packet(kTotPid, 0, "ours")});
    EXPECT_FALSE(record().tables.is_silent);
    EXPECT_EQ(said_.size(), 2);
    EXPECT_EQ(record().tables.silences, 1);
}

TEST_F(InserterTest, RemovesTheEncodersPmtsWhileKestanPlaysAPat) {
    const Packet their_pat =
        pat_packet(0, 1, {program(0, 0x0200), program(1, kPmtPid), program(2, 0x001F)});
    const Packet their_pmt = packet(kPmtPid, 1, "pmt");
    const Packets others{packet(0x0200, 1, "nit"), packet(0x001F, 1, "low")};
    Packet broken_pat = pat_packet(1, 2, {program(1, 0x0300)});
    broken_pat.bytes[20] ^= 1;
    const Packet next = packet(0x0300, 1, "not announced");

    push_tables(0, {packet(kSdtPid, 0, "sdt")});
    EXPECT_THAT(pass(1, {their_pat, their_pmt, broken_pat}),
                ElementsAre(their_pat, their_pmt, broken_pat));
    push_tables(2, {pat_packet(0, 7, {program(1, 0x0400)})});
    EXPECT_THAT(
        pass(3, {their_pmt, others[0], others[1], next, their_pat, null_packet()}),
        ElementsAre(pat_packet(2, 7, {program(1, 0x0400)}), others[0], others[1], next,
                    null_packet(), null_packet()));
    EXPECT_EQ(record().pids.at(kPmtPid).replaced, 1);
    // A new PAT announces other PIDs, even if it has the version of the last one.
    const Packet new_pat = pat_packet(1, 1, {program(1, 0x0300)});
    EXPECT_THAT(pass(4, {new_pat, their_pmt, next}),
                ElementsAre(null_packet(), their_pmt, null_packet()));
}

TEST_F(InserterTest, NeverFillsAPacketOfAStream) {
    PMT pmt;
    pmt.program_number = 1;
    pmt.current_next_indicator = true;
    pmt.descriptors = {ca_descriptor('\x10')};
    PMTStream stream;
    stream.elementary_pid = 0x0111;
    stream.descriptors = {ca_descriptor('\x12')};
    pmt.streams = {stream};
    CAT cat;
    cat.current_next_indicator = true;
    cat.descriptors = {ca_descriptor('\x13')};
    pass(0, {null_packet(), with_pcr(packet(0x0121, 0)),
             with_start(packet(0x0122, 0, std::string("\0\0\1\xE0", 4))),
             with_error(with_pcr(packet(0x0123, 0)))});
    push_tables(1, {pat_packet(0, 1, {program(1, kPmtPid)}),
                    section_packet(kPmtPid, 0, sections_of(pmt).at(0)),
                    section_packet(kCatPid, 0, sections_of(cat).at(0))});
    pass(2, {null_packet(), null_packet(), null_packet()});

    const Packet pcr_on_null = with_pcr(null_packet());
    push_tables(3, {packet(kSdtPid, 0, "sdt")});
    EXPECT_THAT(pass(3, {pcr_on_null, null_packet()}),
                ElementsAre(pcr_on_null, packet(kSdtPid, 0, "sdt")));
    std::size_t said = 0;
    for (const int number : {0x0110, 0x0111, 0x0112, 0x0113, 0x0121, 0x0122}) {
        const auto pid = static_cast<std::uint16_t>(number);
        push_tables(4, {packet(pid, 0, "table"), packet(pid, 1, "table")});
        EXPECT_THAT(pass(5, {packet(pid, 4, "theirs"), null_packet()}),
                    ElementsAre(packet(pid, 4, "theirs"), null_packet()));
        ASSERT_EQ(said_.size(), ++said);
        EXPECT_THAT(said_.back(), HasSubstr("is that of a stream"));
    }
    EXPECT_EQ(record().dropped.stream_pid, 12);
    // Bit errors prove nothing.
    push_tables(4, {packet(0x0123, 0, "table")});
    EXPECT_THAT(pass(5, {packet(0x0123, 4, "theirs")}),
                ElementsAre(packet(0x0123, 1, "table")));
    // What no table on air has named for 5 s may be a table's.
    push_tables(5003, {packet(0x0111, 0, "table")});
    EXPECT_THAT(pass(5004, {packet(0x0111, 4, "theirs")}),
                ElementsAre(packet(0x0111, 5, "table")));
}

TEST_F(InserterTest, KeepsThePidsThatTheUserNames) {
    pass(0, {null_packet()});
    push_tables(1, {packet(0x0012, 0, "eit")});
    const Packet theirs = packet(0x0012, 6, "theirs");
    EXPECT_THAT(pass(2, {theirs, null_packet()}), ElementsAre(theirs, null_packet()));
    EXPECT_EQ(record().kept_out, 1);
    EXPECT_EQ(record().dropped.total(), 0);
}

TEST_F(InserterTest, InsertsNothingIntoLateRtpDatagrams) {
    const auto head = [](int number, char source = 1) {
        std::string header(12, source);
        header[0] = '\x80';
        header[2] = static_cast<char>(number >> 8);
        header[3] = static_cast<char>(number);
        return header;
    };
    struct {
        std::string head;
        bool inserts;
    } const cases[] = {
        {head(0xFFFE), true},     {head(0xFFFE), false},    {head(1), true},
        {head(0xFFFF), false},    {head(2), true},          {head(2, 7), true},
        {head(0, 7), false},      {head(0xF000, 7), false}, {head(0xF001, 7), true},
        {head(0xF000, 7), false},
    };
    const Packet theirs = packet(kSdtPid, 0, "theirs");
    pass(0, {theirs}, head(0xFFF0));
    int counter = 0;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        push_tables(1, {packet(kSdtPid, static_cast<int>(i), "ours")});
        const Packet expected =
            cases[i].inserts ? packet(kSdtPid, ++counter, "ours") : null_packet();
        EXPECT_THAT(pass(2, {theirs}, cases[i].head), ElementsAre(expected)) << i;
    }
}

TEST_F(InserterTest, DropsTheWholeQueueWithoutRoom) {
    pass(0, {null_packet()});
    push_tables(1, {packet(kPatPid, 0, "a"), packet(kPatPid, 1, "b")});
    push_tables(1000, {packet(kPatPid, 2, "c")});
    EXPECT_THAT(pass(1001, {null_packet()}), ElementsAre(packet(kPatPid, 0, "a")));
    EXPECT_THAT(pass(1002, {null_packet()}), ElementsAre(null_packet()));
    EXPECT_EQ(record().dropped.no_room, 2);
    inserter_.advance(2000 * kMs);
    EXPECT_THAT(said_,
                ElementsAre(HasSubstr("2 packets of TABLES dropped; INPUT has 1 null "
                                      "packets a second")));
    push_tables(2000, {packet(kPatPid, 3, "d")});
    push_tables(3001, {packet(kPatPid, 4, "e")});
    EXPECT_EQ(record().dropped.no_room, 3);
    EXPECT_EQ(record().pids.at(kPatPid).dropped, 3);

    for (int i = 1; i < 8191; ++i) push_tables(3002, {packet(kPatPid, 4 + i, "f")});
    EXPECT_EQ(record().dropped.no_room, 3);
    push_tables(3003, {packet(kPatPid, 3, "g"), packet(kPatPid, 4, "h")});
    EXPECT_EQ(record().dropped.no_room, 3 + 8192);
    EXPECT_EQ(record().lost, 0);
}

TEST_F(InserterTest, QueuesNothingWhileThereIsNoInput) {
    push_tables(0, {packet(kPatPid, 0, "a")});
    push_tables(2000, {packet(kPatPid, 1, "b")});
    EXPECT_THAT(pass(2001, {null_packet()}), ElementsAre(null_packet()));
    EXPECT_EQ(record().dropped.total(), 0);
}

TEST_F(InserterTest, SaysOnceThatBothPatsHaveOneVersionAndDiffer) {
    const Packet theirs = pat_packet(0, 4, {program(1, kPmtPid)});
    pass(0, {theirs});
    push_tables(1, {theirs});
    push_tables(1, {pat_packet(1, 5, {program(1, 0x0400)})});
    EXPECT_EQ(said_.size(), 0);
    push_tables(1, {pat_packet(2, 4, {program(1, 0x0400)})});
    push_tables(1, {pat_packet(3, 4, {program(1, 0x0400)})});
    EXPECT_THAT(said_, ElementsAre(HasSubstr("same version_number")));
}

TEST_F(InserterTest, SkipsRepeatsAndCountsWhatIsMissingInTables) {
    pass(0, {null_packet()});
    push_tables(1, {packet(kPatPid, 0, "a"), packet(kPatPid, 0, "a"),
                    packet(kPatPid, 3, "b"), packet(kSdtPid, 7, "c")});
    EXPECT_THAT(pass(2, {null_packet(), null_packet(), null_packet(), null_packet()}),
                ElementsAre(packet(kPatPid, 0, "a"), packet(kPatPid, 1, "b"),
                            packet(kSdtPid, 7, "c"), null_packet()));
    EXPECT_EQ(record().lost, 2);
    EXPECT_EQ(record().pids.at(kPatPid).lost, 2);
}

TEST_F(InserterTest, PassesWhatIsNoTransportStreamAndTakesNoneFromTables) {
    EXPECT_EQ(pass_bytes(0, std::string(1000, 'x')), std::string(1000, 'x'));
    push_tables(1, {{std::string(1000, 'x')}});
    push_tables(1, {{std::string(1000, 'x')}});
    Packet damaged = packet(kPatPid, 0, "damaged");
    push_tables(1, {with_error(damaged), null_packet()});
    damaged.bytes[0] = 'x';
    push_tables(1, {damaged, null_packet()});
    EXPECT_EQ(record().input.malformed, 1);
    EXPECT_EQ(record().dropped.malformed, 2);
    EXPECT_EQ(record().dropped.damaged, 2);
    EXPECT_EQ(record().dropped.null_packet, 2);
    EXPECT_EQ(said_.size(), 3);
    // A packet without a sync byte is none.
    Packet torn = null_packet();
    torn.bytes[0] = 'x';
    push_tables(1, {packet(kPatPid, 0, "a")});
    EXPECT_THAT(pass(2, {torn, null_packet()}),
                ElementsAre(torn, packet(kPatPid, 0, "a")));
    // The code behind a packet of 204 bytes stays.
    push_tables(3, {packet(kPatPid, 1, "b")});
    const std::string code(16, 'c');
    EXPECT_EQ(pass_bytes(3, null_packet().bytes + code + null_packet().bytes + code),
              packet(kPatPid, 1, "b").bytes + code + null_packet().bytes + code);
}

}  // namespace
