#include "tools/kestan-insert/report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "dvb/nanoseconds.h"
#include "tools/json/number_text.h"

namespace {

double to_ms(double ns) {
    return ns / static_cast<double>(kNsPerMs);
}

double mean_wait_ms(const InsertionRecord& record) {
    const auto count = static_cast<double>(std::max<std::uint64_t>(record.inserted, 1));
    return to_ms(static_cast<double>(record.all_waits)) / count;
}

double longest_wait_ms(const InsertionRecord& record) {
    return to_ms(static_cast<double>(record.longest_wait));
}

double null_packets_per_second(const Report& report) {
    return static_cast<double>(report.record.null_packets_left) / report.duration_s;
}

std::string stream_line(const char* name, const StreamRecord& stream,
                        std::uint64_t lost_here) {
    if (stream.datagrams == 0)
        return fmt::format("  {:<10} no datagram has been received\n", name);
    return fmt::format(
        "  {:<10} {} datagrams{}, {} packets; {} malformed, {} lost here, {} silences\n",
        name, stream.datagrams, stream.in_rtp ? " in RTP" : "", stream.packets,
        stream.malformed, lost_here, stream.silences);
}

nlohmann::ordered_json stream_json(const StreamRecord& stream, std::uint64_t lost_here) {
    return {{"datagrams", stream.datagrams}, {"packets", stream.packets},
            {"rtp", stream.in_rtp},          {"malformed_datagrams", stream.malformed},
            {"lost_datagrams", lost_here},   {"silences", stream.silences}};
}

}  // namespace

bool Report::is_in_order() const {
    return record.input.datagrams != 0 && record.tables.datagrams != 0 &&
           record.dropped.total() == 0 && record.lost == 0 && input_lost_here == 0 &&
           tables_lost_here == 0 && unsent == 0;
}

std::string text_report(const Report& report) {
    const InsertionRecord& record = report.record;
    const DropRecord& dropped = record.dropped;
    std::string text = fmt::format("kestan-insert, {:.1f} s\n\n", report.duration_s);
    text += stream_line("INPUT", record.input, report.input_lost_here);
    text += stream_line("TABLES", record.tables, report.tables_lost_here);
    text += fmt::format(
        "  OUTPUT     {} datagrams could not be sent; {:.1f} null packets/s left\n",
        report.unsent, null_packets_per_second(report));
    text += fmt::format(
        "  inserted   {} packets, after {:.1f} ms on average, {:.1f} ms at most\n",
        record.inserted, mean_wait_ms(record), longest_wait_ms(record));
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

std::string json_report(const Report& report) {
    const InsertionRecord& record = report.record;
    nlohmann::ordered_json pids = nlohmann::ordered_json::array();
    for (const auto& [number, pid] : record.pids) {
        pids.push_back({{"pid", pid_text(number)},
                        {"inserted", pid.inserted},
                        {"replaced", pid.replaced},
                        {"dropped", pid.dropped},
                        {"lost", pid.lost}});
    }
    const nlohmann::ordered_json json = {
        {"duration_s", report.duration_s},
        {"in_order", report.is_in_order()},
        {"input", stream_json(record.input, report.input_lost_here)},
        {"tables", stream_json(record.tables, report.tables_lost_here)},
        {"unsent_datagrams", report.unsent},
        {"null_packets_per_second", null_packets_per_second(report)},
        {"inserted", record.inserted},
        {"wait_ms", {{"mean", mean_wait_ms(record)}, {"max", longest_wait_ms(record)}}},
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

std::string progress_line(const Report& before, const Report& now) {
    const InsertionRecord& from = before.record;
    const InsertionRecord& to = now.record;
    const double seconds = std::max(now.duration_s - before.duration_s, 1e-3);
    const auto rate = [&](std::uint64_t earlier, std::uint64_t later) {
        return static_cast<double>(later - earlier) / seconds;
    };
    return fmt::format(
        "{:7.0f} s  INPUT {:.0f} packets/s, {:.0f} inserted/s, {:.0f} null packets/s "
        "left; {} dropped, {} lost\n",
        now.duration_s, rate(from.input.packets, to.input.packets),
        rate(from.inserted, to.inserted),
        rate(from.null_packets_left, to.null_packets_left), to.dropped.total(), to.lost);
}
