#include <fmt/format.h>

#include <deque>
#include <map>
#include <utility>

#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/report.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

// The text of one metric. Labels are a text such as ",pid=\"0x0100\"", or empty.
class Family {
public:
    Family(const std::string& stream, const std::string& name, const char* help)
        : sample_(fmt::format("kestan_monitor_{}{{stream=\"{}\"", name, stream)) {
        const bool is_counter = name.find("_total") != std::string::npos;
        text_ =
            fmt::format("# HELP kestan_monitor_{0} {1}\n# TYPE kestan_monitor_{0} {2}\n",
                        name, help, is_counter ? "counter" : "gauge");
    }

    void add(const std::string& labels, std::uint64_t value) {
        text_ += fmt::format("{}{}}} {}\n", sample_, labels, value);
    }
    void add(const std::string& labels, double value) {
        text_ += fmt::format("{}{}}} {:.9g}\n", sample_, labels, value);
    }

    [[nodiscard]] const std::string& text() const { return text_; }

private:
    std::string sample_;  // what each sample begins with
    std::string text_;
};

std::string pid_label(std::uint16_t pid) {
    return fmt::format(",pid=\"{}\"", pid_text(pid));
}

std::string table_label(const TableKey& table) {
    const auto label = fmt::format(",table=\"{}\"", table_info(table.kind).name);
    if (table.kind != TableKind::kPmt) return label;
    return label + fmt::format(",service_id=\"{}\"", table.service_id);
}

// Collects the families in the order of the text.
class Metrics {
public:
    explicit Metrics(const Report& report)
        : report_(report), stream_(report.stream), faults_(stream_.faults()) {}

    void add_stream() {
        add("up", "1 while datagrams come.").add("", std::uint64_t{stream_.is_up()});
        add("datagrams_total", "Datagrams received.").add("", stream_.datagrams());
        Family& rate = add("bit_rate", "Bits per second of the last second.");
        rate.add("", report_.rates.stream);
        add_checks();
        const auto differences = stream_.expected_differences();
        if (!differences) return;
        Family& expected = add("expected_differences",
                               "Differences from the files that are not accepted.");
        expected.add("", std::uint64_t{*differences});
    }

    void add_pids() {
        Family& packets = add("packets_total", "Transport packets received.");
        Family& rates = add("pid_bit_rate", "Bits per second of the last second.");
        Family& continuity = add("continuity_errors_total", "Continuity errors.");
        Family& crc = add("crc_errors_total", "Sections with a wrong CRC_32.");
        for (const auto& [number, pid] : stream_.pids()) {
            if (pid.packets == 0) continue;
            const std::string label = pid_label(number);
            packets.add(label, pid.packets);
            const auto rate = report_.rates.pids.find(number);
            if (rate != report_.rates.pids.end()) rates.add(label, rate->second);
            continuity.add(label, faults_.count(pid.fault(FaultKind::kContinuity)));
            crc.add(label, faults_.count(pid.fault(FaultKind::kCrc)));
        }
    }

    void add_tables() {
        Family& last = add("last_interval_seconds",
                           "Time between the last two sections of one number.");
        Family& longest = add("longest_interval_seconds",
                              "Longest time without a section of one number.");
        Family& age = add("table_age_seconds", "Time since the last whole section.");
        Family& overdue =
            add("repetition_faults_total", "Times that a section was away for too long.");
        for (const auto& [number, pid] : stream_.pids()) {
            for (const auto& [key, table] : pid.tables) {
                const std::string labels = pid_label(number) + table_label(key);
                const Repetition& repetition = table.repetition();
                if (repetition.intervals().count > 0)
                    last.add(labels, to_seconds(repetition.last_interval()));
                longest.add(labels, to_seconds(repetition.longest()));
                // A service that has ended must not look like a table that is away.
                const bool is_on_air =
                    key.kind != TableKind::kPmt || table.is_announced();
                if (is_on_air && table.last_section())
                    age.add(labels, to_seconds(stream_.now() - *table.last_section()));
                overdue.add(labels,
                            faults_.count(table.fault(FaultKind::kAbsence)) +
                                faults_.count(table.fault(FaultKind::kRepetition)));
            }
        }
    }

    [[nodiscard]] std::string text() const {
        std::string text;
        for (const Family& family : families_) text += family.text();
        return text + "# EOF\n";
    }

private:
    Family& add(const char* name, const char* help) {
        return families_.emplace_back(report_.address, name, help);
    }

    void add_checks() {
        std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> counts;
        for (std::size_t i = 0; i < kFaultKinds; ++i) {
            const auto kind = static_cast<FaultKind>(i);
            auto& [total, accepted] = counts[check_name(kind)];
            total += faults_.total(kind);
            accepted += faults_.total_accepted(kind);
        }
        Family& totals = add("faults_total", "What was outside the limits, by check.");
        Family& accepted = add("accepted_faults_total",
                               "Those of faults_total that are known, by check.");
        for (const auto& [check, count] : counts) {
            const std::string label = fmt::format(",check=\"{}\"", check);
            totals.add(label, count.first);
            accepted.add(label, count.second);
        }
    }

    const Report& report_;
    const StreamStatistics& stream_;
    const FaultLog& faults_;
    std::deque<Family> families_;  // references stay valid when others are added
};

}  // namespace

std::string metrics_text(const Report& report) {
    Metrics metrics(report);
    metrics.add_stream();
    metrics.add_pids();
    metrics.add_tables();
    return metrics.text();
}
