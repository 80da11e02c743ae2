#include "tools/kestan-monitor/report/metrics.h"

#include <fmt/format.h>

#include <functional>

#include "tools/json/number_text.h"
#include "tools/kestan-monitor/report/fault_text.h"
#include "tools/kestan-monitor/report/text_format.h"

namespace {

constexpr const char* kPrefix = "kestan_monitor_";

// Builds the text, family by family.
class MetricsText {
public:
    explicit MetricsText(const Report& report)
        : report_(report), stream_("stream=\"" + report.address + '"') {}

    void family(const char* name, const char* type, const char* help) {
        name_ = kPrefix + std::string(name);
        text_ += "# HELP " + name_ + ' ' + help + "\n# TYPE " + name_ + ' ' + type + '\n';
    }

    // Appends a sample. `labels` is a text such as "pid=\"0x0100\"", or empty.
    void sample(const std::string& labels, double value) {
        text_ += sample_name(labels) + fmt::format(" {:.9g}\n", value);
    }
    void sample(const std::string& labels, std::uint64_t value) {
        text_ += sample_name(labels) + ' ' + std::to_string(value) + '\n';
    }

    void add_by_check(const std::function<std::uint64_t(FaultKind)>& count) {
        std::map<std::string, std::uint64_t> counts;
        for (std::size_t i = 0; i < kFaultKinds; ++i) {
            const auto kind = static_cast<FaultKind>(i);
            counts[check_name(kind)] += count(kind);
        }
        for (const auto& [check, of_it] : counts) sample("check=\"" + check + '"', of_it);
    }

    void for_each_pid(const std::function<void(const PidRecord&)>& visit) {
        for (const auto& [number, pid] : report_.stream.pids()) {
            if (pid.packets > 0) visit(pid);
        }
    }

    void for_each_table(
        const std::function<void(const std::string& labels, const TableRecord&)>& visit) {
        for (const auto& [number, pid] : report_.stream.pids()) {
            for (const auto& [key, table] : pid.tables) {
                std::string labels =
                    pid_label(pid) + ",table=\"" + table_info(key.kind).name + '"';
                if (key.kind == TableKind::kPmt)
                    labels += ",service_id=\"" + std::to_string(key.service_id) + '"';
                visit(labels, table);
            }
        }
    }

    static std::string pid_label(const PidRecord& pid) {
        return "pid=\"" + pid_text(pid.number) + '"';
    }

    [[nodiscard]] std::string finished() && { return std::move(text_) + "# EOF\n"; }

private:
    [[nodiscard]] std::string sample_name(const std::string& labels) const {
        return name_ + '{' + stream_ + (labels.empty() ? "" : ",") + labels + '}';
    }

    const Report& report_;
    std::string stream_;
    std::string name_;
    std::string text_;
};

void add_stream(const Report& report, MetricsText& metrics) {
    const StreamStatistics& stream = report.stream;
    metrics.family("up", "gauge", "1 while datagrams come.");
    metrics.sample("", std::uint64_t{stream.is_up() ? 1u : 0u});
    metrics.family("datagrams_total", "counter", "Datagrams received.");
    metrics.sample("", stream.datagrams());
    metrics.family("bit_rate", "gauge", "Bits per second of the last second.");
    metrics.sample("", report.rates.stream);
    metrics.family("faults_total", "counter", "What was outside the limits, by check.");
    metrics.add_by_check([&](FaultKind kind) { return stream.faults().total(kind); });
    metrics.family("accepted_faults_total", "counter",
                   "Those of faults_total that are known, by check.");
    metrics.add_by_check(
        [&](FaultKind kind) { return stream.faults().total_accepted(kind); });
    const auto differences = stream.expected_differences();
    if (!differences) return;
    metrics.family("expected_differences", "gauge",
                   "Differences from the files that are not accepted.");
    metrics.sample("", std::uint64_t{*differences});
}

void add_pids(const Report& report, MetricsText& metrics) {
    const auto count = [&](FaultKind kind) {
        metrics.for_each_pid([&](const PidRecord& pid) {
            metrics.sample(MetricsText::pid_label(pid),
                           report.stream.faults().count(pid.fault(kind)));
        });
    };
    metrics.family("packets_total", "counter", "Transport packets received.");
    metrics.for_each_pid([&](const PidRecord& pid) {
        metrics.sample(MetricsText::pid_label(pid), pid.packets);
    });
    metrics.family("pid_bit_rate", "gauge", "Bits per second of the last second.");
    metrics.for_each_pid([&](const PidRecord& pid) {
        const auto rate = report.rates.pids.find(pid.number);
        if (rate != report.rates.pids.end())
            metrics.sample(MetricsText::pid_label(pid), rate->second);
    });
    metrics.family("continuity_errors_total", "counter", "Continuity errors.");
    count(FaultKind::kContinuity);
    metrics.family("crc_errors_total", "counter", "Sections with a wrong CRC_32.");
    count(FaultKind::kCrc);
}

// A service that has ended must not look like a table that is away.
bool is_on_air(const TableRecord& table) {
    return table.place().table->kind != TableKind::kPmt || table.is_announced();
}

void add_tables(const Report& report, MetricsText& metrics) {
    metrics.family("last_interval_seconds", "gauge",
                   "Time between the last two sections of one number.");
    metrics.for_each_table([&](const std::string& labels, const TableRecord& table) {
        const Repetition& repetition = table.repetition();
        if (repetition.intervals().count > 0)
            metrics.sample(labels, to_seconds(repetition.last_interval()));
    });
    metrics.family("longest_interval_seconds", "gauge",
                   "Longest time without a section of one number.");
    metrics.for_each_table([&](const std::string& labels, const TableRecord& table) {
        metrics.sample(labels, to_seconds(table.repetition().longest()));
    });
    metrics.family("table_age_seconds", "gauge", "Time since the last whole section.");
    metrics.for_each_table([&](const std::string& labels, const TableRecord& table) {
        const auto last = table.last_section();
        if (last && is_on_air(table))
            metrics.sample(labels, to_seconds(report.stream.now() - *last));
    });
    metrics.family("repetition_faults_total", "counter",
                   "Times that a section was away for too long.");
    metrics.for_each_table([&](const std::string& labels, const TableRecord& table) {
        const FaultLog& faults = report.stream.faults();
        metrics.sample(labels, faults.count(table.fault(FaultKind::kAbsence)) +
                                   faults.count(table.fault(FaultKind::kRepetition)));
    });
}

}  // namespace

std::string metrics_text(const Report& report) {
    MetricsText metrics(report);
    add_stream(report, metrics);
    add_pids(report, metrics);
    add_tables(report, metrics);
    return std::move(metrics).finished();
}
