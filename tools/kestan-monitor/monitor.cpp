#include "tools/kestan-monitor/monitor.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "dvb/civil_clock.h"
#include "tools/files/table_files.h"
#include "tools/json/shown_text.h"
#include "tools/service/diagnostics.h"
#include "tools/service/program.h"

namespace {

std::string unwritten_text(const std::string& path, const std::system_error& error) {
    return shown_path(path) + ": cannot be written: " + error.code().message();
}

}  // namespace

std::optional<Multiplex> read_expected_tables(const Options& options, FileKind kind) {
    const ReadFiles read = TableFiles(options.expected, kind).read(Severity::kWarning);
    const bool is_valid = read.mistakes.empty();
    for (const FileFinding& finding : is_valid ? read.doubts : read.mistakes)
        complain(finding.severity, "kestan-monitor: " + finding.line());
    if (!is_valid) return std::nullopt;
    return JoinedFiles(read.files).tables();
}

Monitor::Monitor(const Options& options, std::optional<Multiplex> expected)
    : options_(options),
      receiver_(parse_endpoint(options.address), options.interface),
      stream_(steady_now_ns()) {
    read_clock();
    stream_.accept(options_.accepted);
    if (expected) stream_.expect(*std::move(expected), !options_.any_version);
    if (!options_.plot.empty()) stream_.keep_series();
    open_files();
}

// A mistake in a path ends the program before it measures.
void Monitor::open_files() {
    const std::string* path = &options_.record;
    try {
        if (!path->empty()) recorder_.emplace(*path);
        path = &options_.metrics;
        if (!path->empty()) write_metrics();
    } catch (const std::system_error& error) {
        throw std::runtime_error(unwritten_text(*path, error));
    }
}

void Monitor::run(const volatile std::sig_atomic_t& stop_requested,
                  volatile std::sig_atomic_t& wants_reload) {
    if (!options_.json && Terminal::is_there()) screen_.emplace();
    std::int64_t now = steady_now_ns();
    std::int64_t refresh = now + kNsPerSecond;
    const std::int64_t end = end_of_run(now, options_.duration_s);
    std::int64_t complete_until = now;
    while (stop_requested == 0 && !quit_ && now < end) {
        complete_until = receive(std::min(refresh, end) - now);
        now = steady_now_ns();
        if (wants_reload != 0) {
            wants_reload = 0;
            read_expected_again();
        }
        if (screen_) look_at_terminal();
        if (now < refresh) continue;
        refresh = now + kNsPerSecond - (now - refresh) % kNsPerSecond;
        every_second(complete_until);
    }
    screen_.reset();
    say_complaints();
    read_clock();
    stream_.finish(complete_until, receiver_.lost());
    write_files();
    if (options_.plot.empty()) return;
    try_to_write(options_.plot, "", [&] {
        replace_text_file(options_.plot, plot_svg(report()), FileUse::kReport);
    });
}

// Does not wait for a pipe: datagrams would be lost.
void Monitor::read_expected_again() {
    auto tables = read_expected_tables(options_, FileKind::kRegular);
    if (!tables) {
        complain(Severity::kError, "kestan-monitor: the tables read before stay");
        return;
    }
    const auto& paths = options_.expected;
    const bool has_input =
        std::find(paths.begin(), paths.end(), kStandardInput) != paths.end();
    complain(Severity::kInformation, std::string("kestan-monitor: files read again") +
                                         (has_input ? ", but not standard input" : ""));
    stream_.expect(*std::move(tables), !options_.any_version);
}

std::int64_t Monitor::receive(std::int64_t timeout) {
    return receiver_.receive(
        timeout,
        [this](std::int64_t arrival, const std::uint8_t* data, std::size_t size) {
            const auto packets = stream_.push(arrival, data, size);
            if (packets && recorder_) recorder_->write(*packets);
        },
        screen_ ? screen_->terminal.key_fd() : -1);
}

void Monitor::look_at_terminal() {
    const std::vector<Key> keys = screen_->terminal.read_keys();
    for (const Key key : keys) {
        quit_ = quit_ || key == Key::kQuit;
        screen_->view.on_key(key);
    }
    if (!keys.empty() || !(Terminal::size() == screen_->drawn)) draw();
}

void Monitor::every_second(std::int64_t complete_until) {
    read_clock();
    stream_.advance(complete_until, receiver_.lost());
    rates_ = meter_.measure(stream_);
    write_files();
    if (screen_) draw();
}

void Monitor::write_files() {
    if (recorder_ && !try_to_write(options_.record, "; the recording has ended",
                                   [this] { recorder_->flush(); })) {
        recorder_.reset();
    }
    if (options_.metrics.empty()) return;
    try_to_write(options_.metrics, "; this is tried again each second",
                 [this] { write_metrics(); });
}

void Monitor::write_metrics() const {
    replace_text_file(options_.metrics, metrics_text(report_of_last_second()),
                      FileUse::kReport);
}

// Returns whether write() was able to write the file. If not, says so the first time.
template <typename Write>
bool Monitor::try_to_write(const std::string& path, const char* consequence,
                           const Write& write) {
    try {
        write();
        return true;
    } catch (const std::system_error& error) {
        if (unwritten_.insert(path).second)
            complaints_ +=
                "kestan-monitor: " + unwritten_text(path, error) + consequence + '\n';
        if (!screen_) say_complaints();
        return false;
    }
}

void Monitor::say_complaints() {
    std::cerr << std::exchange(complaints_, "");
}

void Monitor::read_clock() {
    std::optional<std::int64_t> tolerance;
    if (options_.clock_tolerance_s > 0 && is_civil_clock_synchronised())
        tolerance = static_cast<std::int64_t>(options_.clock_tolerance_s * kNsPerSecond);
    stream_.set_civil_clock(civil_minus_steady_ns(), tolerance);
}

void Monitor::draw() {
    screen_->drawn = Terminal::size();
    Terminal::show(screen_->view.lay_out(report_of_last_second(), screen_->drawn));
}

Report Monitor::report_of_last_second() const {
    return {options_.address, stream_, rates_};
}

Report Monitor::report() const {
    return {options_.address, stream_, RateMeter().measure(stream_)};
}
