#include "tools/kestan-insert/insertion.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <limits>
#include <set>
#include <stdexcept>

#include "dvb/nanoseconds.h"
#include "tools/service/service_manager.h"

namespace {

void say(const std::string& message) {
    std::cerr << "kestan-insert: " + message + '\n';
}

bool are_equal(const std::string& one, const std::string& other) {
    if (one == kPipe || other == kPipe) return false;
    const sockaddr_in a = parse_endpoint(one), b = parse_endpoint(other);
    return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

const Options& checked(const Options& options) {
    if (are_equal(options.output, options.input) ||
        are_equal(options.output, options.tables))
        throw std::runtime_error(
            "OUTPUT must be another address than INPUT and TABLES: "
            "what leaves would come in again");
    if (are_equal(options.input, options.tables))
        throw std::runtime_error("INPUT and TABLES must be two addresses");
    return options;
}

}  // namespace

Insertion::Insertion(const Options& options)
    : options_(checked(options)),
      input_(options.input, options.input_interface),
      tables_(parse_endpoint(options.tables), options.tables_interface,
              ArrivalTime::kReading),
      output_(options.output, options.output_interface, options.ttl),
      began_(steady_now_ns()),
      inserter_({options.kept.begin(), options.kept.end()}, began_, say) {}

void Insertion::run(const volatile std::sig_atomic_t& stop_requested) {
    notify_service_manager("READY=1");
    tell_service_manager();
    std::int64_t now = began_;
    std::int64_t next_second = now + kNsPerSecond;
    const std::int64_t end =
        options_.duration_s
            ? now + static_cast<std::int64_t>(*options_.duration_s * kNsPerSecond)
            : std::numeric_limits<std::int64_t>::max();
    while (stop_requested == 0 && !input_.is_over() && now < end) {
        wait(std::min(next_second, end) - now);
        now = steady_now_ns();
        if (now < next_second) continue;
        every_second(now);
        next_second = now + kNsPerSecond;
    }
}

// Waits for datagrams and takes those that are there. TABLES comes first, so that its
// packets leave in the first slot after they have come.
void Insertion::wait(std::int64_t timeout_ns) {
    std::array<pollfd, 2> readable{{{tables_.fd(), POLLIN, 0}, {input_.fd(), POLLIN, 0}}};
    const timespec timeout{timeout_ns / kNsPerSecond, timeout_ns % kNsPerSecond};
    if (ppoll(readable.data(), readable.size(), &timeout, nullptr) <= 0) return;
    if (readable[0].revents != 0) {
        tables_.read([this](std::int64_t arrival, auto* data, std::size_t size) {
            inserter_.push_tables(arrival, data, size);
        });
    }
    if (readable[1].revents != 0)
        input_.read(
            [this](auto now, auto* data, std::size_t size) { pass(now, data, size); });
}

void Insertion::pass(std::int64_t now, std::uint8_t* datagram, std::size_t size) {
    const auto packets = inserter_.fill(now, datagram, size);
    if (output_.send(datagram, size, packets)) return;
    ++unsent_;
    if (unsent_ > 1) return;
    say(fmt::format("cannot send to {}: {}; going on", options_.output,
                    std::strerror(errno)));
}

void Insertion::every_second(std::int64_t now) {
    inserter_.advance(now);
    say_losses();
    tell_service_manager();
    if (!options_.json) show_progress();
}

void Insertion::say_losses() {
    const std::uint64_t lost = input_.lost() + std::uint64_t{tables_.lost()};
    if (lost != losses_said_) {
        say(fmt::format(
            "receive buffer full: {} datagrams of INPUT and {} of TABLES lost "
            "so far; raise the sysctl net.core.rmem_max",
            input_.lost(), tables_.lost()));
    }
    losses_said_ = lost;
}

void Insertion::show_progress() {
    const bool is_piped = options_.output == kPipe;
    if (isatty(is_piped ? STDERR_FILENO : STDOUT_FILENO) == 0) return;
    const Report now = report();
    (is_piped ? std::cerr : std::cout)
        << progress_line(second_before_, now) << std::flush;
    second_before_ = now;
}

void Insertion::tell_service_manager() {
    std::string status = "inserting";
    if (inserter_.awaits_tables()) status = "waiting for TABLES at " + options_.tables;
    if (inserter_.awaits_input()) status = "waiting for INPUT at " + options_.input;
    if (status == status_) return;
    status_ = status;
    notify_service_manager("STATUS=" + status);
}

Report Insertion::report() const {
    Report report;
    report.duration_s =
        static_cast<double>(steady_now_ns() - began_) / static_cast<double>(kNsPerSecond);
    report.record = inserter_.record();
    report.input_lost_here = input_.lost();
    report.tables_lost_here = tables_.lost();
    report.unsent = unsent_;
    return report;
}
