// What kestan-monitor finds in a stream whose tables differ from those of files.

#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/cases.h"
#include "tests/support/memory_file.h"
#include "tests/support/sections.h"
#include "tools/json/multiplex_file.h"
#include "tools/kestan-monitor/measure/stream_statistics.h"
#include "tools/kestan-monitor/report/fault_text.h"

namespace {

using nlohmann::json;

// Returns tables after an edit: "/pat/version_number=4", or "/cat=" to remove it.
Multiplex edited(const std::string& edit) {
    json tables;
    std::ifstream(KESTAN_TEST_DATA "/differences.json") >> tables;
    const std::string path = edit.substr(0, edit.find('='));
    const std::string value = edit.substr(std::min(edit.size(), path.size() + 1));
    if (!value.empty()) tables[json::json_pointer(path)] = json::parse(value);
    if (value.empty() && !path.empty())
        tables = tables.patch({{{"op", "remove"}, {"path", path}}});
    return read_multiplex_file(memory_file(tables.dump()));
}

struct Stream {
    void send(std::int64_t ms, const Multiplex& tables) {
        for_each_table(tables, [&](TablePlace place, const auto& table) {
            const auto fixed = table_info(place.kind).pid;
            const int pid = fixed ? *fixed : tables.pmts[place.pmt].pid;
            const int header[] = {0x47, 0x40 | pid >> 8, pid, 0x10 | (counter & 0x0F), 0};
            std::string packet(std::begin(header), std::end(header));
            packet += sections_of(table)[0];
            packet.resize(188, '\xFF');
            const auto* const data = reinterpret_cast<const std::uint8_t*>(packet.data());
            statistics.push(ms * kNsPerMs, data, packet.size());
        });
        ++counter;
    }

    // Returns what differs at the end.
    std::string found(std::int64_t ms) {
        statistics.finish(ms * kNsPerMs, 0);
        std::string texts;
        for (const auto& [fault, record] : statistics.faults().records()) {
            if (fault.kind == FaultKind::kExpected) texts += describe(fault, 0) + ';';
        }
        return texts.empty() ? "nothing" : texts;
    }

    StreamStatistics statistics{0};
    int counter = 0;
};

std::string found(const Multiplex& on_air, const Multiplex& files) {
    Stream stream;
    stream.statistics.expect(files, true);
    stream.send(0, on_air);
    return stream.found(1);
}

TEST(ExpectedCheck, NamesWhatDiffersFromTheFiles) {
    for (const auto& [edits, expected] : cases_in("differences.txt")) {
        const std::size_t bar = edits.find('|');
        EXPECT_EQ(found(edited(edits.substr(0, bar)), edited(edits.substr(bar + 1))),
                  expected)
            << edits;
    }
    Multiplex two = edited("");
    two.pmts.push_back({0x0777, two.pmts[0].pmt});
    EXPECT_EQ(found(two, two), "nothing");
    EXPECT_EQ(found(two, edited("")),
              "PID 0x0777: PMT of service 7 is on PID 0x0777, the files have 0x0100;");
}

TEST(ExpectedCheck, CountsADifferenceOnceAfterTwoSecondsOrAtTheEnd) {
    Stream stream;
    StreamStatistics& statistics = stream.statistics;
    using Counts = std::pair<std::size_t, std::optional<std::size_t>>;  // in all, now
    const auto counts = [&](std::int64_t ms, std::int64_t ns = 0) {
        statistics.advance(ms * kNsPerMs + ns, 0);
        return Counts(statistics.faults().all(FaultKind::kExpected).total,
                      statistics.expected_differences());
    };
    statistics.accept({{FaultKind::kExpected, {}, kSdtPid}});
    statistics.expect(edited("/pat/version_number=9"), true);
    for (const int ms : {0, 400, 800, 1200, 1600, 2000}) {  // of two other versions
        stream.send(ms, edited(ms % 800 == 0 ? "/pat/version_number=1" : ""));
        EXPECT_EQ(counts(ms), Counts(0, 0));
    }
    for (const int ns : {1, 2}) EXPECT_EQ(counts(2000, ns), Counts(1, 1));
    statistics.expect(edited(""), true);
    EXPECT_EQ(counts(2000, 3), Counts(1, 0));
    for (const int ms : {3000, 4000, 5000, 6000}) {  // with short silences
        stream.send(ms, {{{}, edited("").cat, {}}, {}});
        static_cast<void>(counts(ms + 900));
    }
    EXPECT_EQ(counts(6900, 1), Counts(4, 2)) << "one is accepted";
    EXPECT_EQ(counts(20000), Counts(4, std::nullopt)) << "the stream is down";
    stream.send(20000, edited("/pat/version_number=1"));
    EXPECT_EQ(stream.found(20000),
              "PID 0x0000: PAT is missing, the files have it;"
              "PID 0x0000: PAT is version 0, the files have 9;"
              "PID 0x0000: PAT is version 1, the files have 0;"
              "PID 0x0011: SDT actual is missing, the files have it;"
              "PID 0x0100: PMT of service 7 is missing, the files have it;");
}

}  // namespace
