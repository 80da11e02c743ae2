#include <fmt/format.h>

#include <map>

#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

// One metric as text. Labels are a text such as ",pid=\"0x0100\"", or empty.
struct Family {
    Family(const Report& report, const std::string& name, const char* help)
        : sample(fmt::format("kestan_monitor_{}{{stream=\"{}\"", name, report.address)) {
        const bool is_counter = name.find("_total") != std::string::npos;
        text =
            fmt::format("# HELP kestan_monitor_{0} {1}\n# TYPE kestan_monitor_{0} {2}\n",
                        name, help, is_counter ? "counter" : "gauge");
    }

    void add(const std::string& labels, std::uint64_t value) {
        text += fmt::format("{}{}}} {}\n", sample, labels, value);
    }
    void add(const std::string& labels, double value) {
        text += fmt::format("{}{}}} {:.9g}\n", sample, labels, value);
    }

    std::string sample;  // what each sample begins with
    std::string text;
};

template <typename Value>
std::string single_sample(const Report& report, const char* name, const char* help,
                          Value value) {
    Family family(report, name, help);
    family.add("", value);
    return family.text;
}

std::string stream_metrics(const Report& report) {
    return single_sample(report, "up", "1 while datagrams come.",
                         std::uint64_t{report.stream.is_up()}) +
           single_sample(report, "datagrams_total", "Datagrams received.",
                         report.stream.datagrams()) +
           single_sample(report, "bit_rate", "Bits per second of the last second.",
                         report.rates.stream);
}

std::string fault_metrics(const Report& report) {
    const FaultLog& faults = report.stream.faults();
    std::map<std::string, FaultLog::Count> counts;  // by check
    for (std::size_t i = 0; i < kFaultKinds; ++i) {
        const auto kind = static_cast<FaultKind>(i);
        FaultLog::Count& count = counts[check_name(kind)];
        count.total += faults.all(kind).total;
        count.accepted += faults.all(kind).accepted;
    }
    Family totals(report, "faults_total", "What was outside the limits, by check.");
    Family accepted(report, "accepted_faults_total",
                    "Those of faults_total that are known, by check.");
    for (const auto& [check, count] : counts) {
        const std::string label = fmt::format(",check=\"{}\"", check);
        totals.add(label, count.total);
        accepted.add(label, count.accepted);
    }
    const auto differences = report.stream.expected_differences();
    return totals.text + accepted.text +
           (differences
                ? single_sample(report, "expected_differences",
                                "Differences from the files that are not accepted.",
                                std::uint64_t{*differences})
                : "");
}

std::string pid_label(std::uint16_t pid) {
    return fmt::format(",pid=\"{}\"", pid_text(pid));
}

std::string pid_metrics(const Report& report) {
    const FaultLog& faults = report.stream.faults();
    Family packets(report, "packets_total", "Transport packets received.");
    Family rates(report, "pid_bit_rate", "Bits per second of the last second.");
    Family continuity(report, "continuity_errors_total", "Continuity errors.");
    Family crc(report, "crc_errors_total", "Sections with a wrong CRC_32.");
    for (const auto& [number, pid] : report.stream.pids()) {
        if (pid.packets == 0) continue;
        const std::string label = pid_label(number);
        packets.add(label, pid.packets);
        const auto rate = report.rates.pids.find(number);
        if (rate != report.rates.pids.end()) rates.add(label, rate->second);
        continuity.add(label, faults.count(pid.fault(FaultKind::kContinuity)));
        crc.add(label, faults.count(pid.fault(FaultKind::kCrc)));
    }
    return packets.text + rates.text + continuity.text + crc.text;
}

std::string table_label(const TableKey& table) {
    std::string label = fmt::format(",table=\"{}\"", table_info(table.kind).name);
    if (table.kind == TableKind::kPmt)
        label += fmt::format(",service_id=\"{}\"", table.service_id);
    return label;
}

std::string table_metrics(const Report& report) {
    const FaultLog& faults = report.stream.faults();
    Family last(report, "last_interval_seconds",
                "Time between the last two sections of one number.");
    Family longest(report, "longest_interval_seconds",
                   "Longest time without a section of one number.");
    Family age(report, "table_age_seconds", "Time since the last whole section.");
    Family overdue(report, "repetition_faults_total",
                   "Times that a section was away for too long.");
    for (const auto& [number, pid] : report.stream.pids()) {
        for (const auto& [key, table] : pid.tables) {
            const std::string labels = pid_label(number) + table_label(key);
            const Repetition& repetition = table.repetition();
            if (repetition.intervals().count > 0)
                last.add(labels, to_seconds(repetition.last_interval()));
            longest.add(labels, to_seconds(repetition.longest()));
            // A service that has ended must not look like a table that is away.
            const bool is_on_air = key.kind != TableKind::kPmt || table.is_announced();
            if (is_on_air && table.last_section())
                age.add(labels, to_seconds(report.stream.now() - *table.last_section()));
            overdue.add(labels, faults.count(table.fault(FaultKind::kAbsence)) +
                                    faults.count(table.fault(FaultKind::kRepetition)));
        }
    }
    return last.text + longest.text + age.text + overdue.text;
}

}  // namespace

std::string metrics_text(const Report& report) {
    return stream_metrics(report) + fault_metrics(report) + pid_metrics(report) +
           table_metrics(report) + "# EOF\n";
}
