#include "tools/kestan-insert/report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "dvb/nanoseconds.h"
#include "tools/json/number_text.h"

namespace {

double to_ms(std::int64_t ns) {
    return static_cast<double>(ns) / static_cast<double>(kNsPerMs);
}

double to_seconds(std::int64_t ns) {
    return static_cast<double>(ns) / static_cast<double>(kNsPerSecond);
}

double mean_wait_ms(const InsertionRecord& record) {
    const auto count = static_cast<double>(std::max<std::uint64_t>(record.inserted, 1));
    return to_ms(record.all_waits) / count;
}

double null_packets_per_second(const InsertionRecord& record) {
    return static_cast<double>(record.null_packets_left) / to_seconds(record.duration);
}

std::string stream_line(const StreamRecord& stream) {
    if (stream.datagrams == 0)
        return fmt::format("  {:<10} no datagram has been received\n", stream.name);
    return fmt::format(
        "  {:<10} {} datagrams{}, {} packets; {} malformed, {} lost here, {} silences\n",
        stream.name, stream.datagrams, stream.in_rtp ? " in RTP" : "", stream.packets,
        stream.malformed, stream.lost_here, stream.silences);
}

nlohmann::ordered_json stream_json(const StreamRecord& stream) {
    return {{"datagrams", stream.datagrams},
            {"packets", stream.packets},
            {"rtp", stream.in_rtp},
            {"malformed_datagrams", stream.malformed},
            {"lost_datagrams", stream.lost_here},
            {"silences", stream.silences}};
}

}  // namespace

std::string text_report(const InsertionRecord& record) {
    const DropRecord& dropped = record.dropped;
    std::string text =
        fmt::format("kestan-insert, {:.1f} s\n\n", to_seconds(record.duration));
    text += stream_line(record.input);
    text += stream_line(record.tables);
    text += fmt::format(
        "  OUTPUT     {} datagrams could not be sent; {:.1f} null packets/s left\n",
        record.unsent, null_packets_per_second(record));
    text += fmt::format(
        "  inserted   {} packets, after {:.1f} ms on average, {:.1f} ms at most\n",
        record.inserted, mean_wait_ms(record), to_ms(record.longest_wait));
    text += fmt::format(
        "  dropped    {} packets without room, {} on PIDs of streams, {} null packets, "
        "{} damaged; {} kept out\n",
        dropped.no_room, dropped.stream_pid, dropped.null_packet, dropped.damaged,
        record.kept_out);
    text += fmt::format("  lost       {} packets that are missing in TABLES\n\n",
                        record.lost);
    text += fmt::format("{:<8}{:>10}{:>10}{:>10}{:>10}\n", "PID", "inserted", "replaced",
                        "dropped", "lost");
    for (const auto& [number, pid] : record.pids) {
        text += fmt::format("{:<8}{:>10}{:>10}{:>10}{:>10}\n", pid_text(number),
                            pid.inserted, pid.replaced, pid.dropped, pid.lost);
    }
    return text;
}

std::string json_report(const InsertionRecord& record) {
    nlohmann::ordered_json pids = nlohmann::ordered_json::array();
    for (const auto& [number, pid] : record.pids) {
        pids.push_back({{"pid", pid_text(number)},
                        {"inserted", pid.inserted},
                        {"replaced", pid.replaced},
                        {"dropped", pid.dropped},
                        {"lost", pid.lost}});
    }
    const nlohmann::ordered_json json = {
        {"duration_s", to_seconds(record.duration)},
        {"in_order", record.is_in_order()},
        {"input", stream_json(record.input)},
        {"tables", stream_json(record.tables)},
        {"unsent_datagrams", record.unsent},
        {"null_packets_per_second", null_packets_per_second(record)},
        {"inserted", record.inserted},
        {"wait_ms",
         {{"mean", mean_wait_ms(record)}, {"max", to_ms(record.longest_wait)}}},
        {"dropped",
         {{"no_room", record.dropped.no_room},
          {"stream_pid", record.dropped.stream_pid},
          {"null_packets", record.dropped.null_packet},
          {"damaged", record.dropped.damaged},
          {"malformed_datagrams", record.dropped.malformed}}},
        {"kept_out", record.kept_out},
        {"lost", record.lost},
        {"pids", pids}};
    return json.dump(2) + '\n';
}

std::string progress_line(const InsertionRecord& before, const InsertionRecord& now) {
    const double seconds = std::max(to_seconds(now.duration - before.duration), 1e-3);
    const auto rate = [&](std::uint64_t earlier, std::uint64_t later) {
        return static_cast<double>(later - earlier) / seconds;
    };
    return fmt::format(
        "{:7.0f} s  INPUT {:.0f} packets/s, {:.0f} inserted/s, {:.0f} null packets/s "
        "left; {} dropped, {} lost\n",
        to_seconds(now.duration), rate(before.input.packets, now.input.packets),
        rate(before.inserted, now.inserted),
        rate(before.null_packets_left, now.null_packets_left), now.dropped.total(),
        now.lost);
}
