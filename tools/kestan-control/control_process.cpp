#include "tools/kestan-control/control_process.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <iterator>
#include <system_error>
#include <utility>

#include "thrift/instance_ports.h"
#include "tools/service/diagnostics.h"
#include "tools/service/service_manager.h"

namespace {

// The wait after the first failure. It doubles with each further failure.
constexpr std::chrono::milliseconds kFirstBackOff{50};
constexpr std::chrono::milliseconds kLongestBackOff{3000};

// Between two answers to start notifications.
constexpr std::chrono::seconds kAnswerInterval{1};

std::string time_of_day() {
    return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr)));
}

}  // namespace

ControlProcess::ControlProcess(const ControlAddress& address,
                               std::vector<std::string> paths, const CheckSettings& check,
                               bool raises_versions, bool clears)
    : address_(address),
      files_(std::move(paths), FileKind::kRegular),
      check_(check),
      outgoing_(address, raises_versions),
      tables_(outgoing_.take(valid_tables_to_send(files_, check_))),
      sender_("played", address, "a start without it withdraws all tables first", clears),
      notifications_(ports_of(address.set).notification),
      next_kick_(watchdog_time().count() == 0 ? kNever : Clock::now()) {}

void ControlProcess::run() {
    std::cout << bit_rate_line(tables_) << std::endl;
    request_push(Clock::now());
    for (;;) {
        pollfd events[] = {{signals_.end_fd(), POLLIN, 0},
                           {signals_.reload_fd(), POLLIN, 0},
                           {notifications_.fd(), POLLIN, 0},
                           {connection_ ? connection_->fd() : -1, POLLIN, 0}};
        if (poll(events, std::size(events), milliseconds_to_next_step()) < 0 &&
            errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (events[0].revents != 0) break;
        if (events[1].revents != 0) read_again();
        if (events[2].revents != 0) on_notification();
        if (events[3].revents != 0) push();
        if (Clock::now() >= next_step_) take_step();
        kick_watchdog();
    }
    notify_service_manager("STOPPING=1\nSTATUS=has ended; " +
                           (sent_at_.empty()
                                ? "nothing was sent"
                                : "what was sent at " + sent_at_ + " stays"));
}

void ControlProcess::read_again() {
    signals_.take_reload();
    const auto files = tables_to_send(files_, check_);
    if (!files) {
        complain(Severity::kError, "the tables read before stay");
        mistake_at_ = time_of_day();
        report_sent(0);
        return;
    }
    mistake_at_.clear();
    tables_ = outgoing_.take(*files);
    std::cout << "files read again, " << bit_rate_line(tables_) << std::endl;
    if (phase_ == Phase::kIdle && sender_.plays(tables_)) {
        std::cout << "no table has changed" << std::endl;
        report_sent(0);
        return;
    }
    request_push(Clock::now());
}

void ControlProcess::on_notification() {
    eventfd_t count = 0;
    eventfd_read(notifications_.fd(), &count);
    if (notifications_.has_ended()) {
        throw std::runtime_error(
            "the service of kestan's start notification has ended: start it again");
    }
    sender_.kestan_has_started();
    const Clock::time_point now = Clock::now();
    if (answer_ <= now) {
        answer_ = std::max(answer_ + kAnswerInterval, now);
        std::cout << "kestan has started" << std::endl;
    }
    request_push(answer_);
}

void ControlProcess::request_push(Clock::time_point when) {
    back_off_ = kFirstBackOff;
    if (connection_) return;
    phase_ = Phase::kDue;
    next_step_ = std::min(next_step_, when);
}

void ControlProcess::take_step() {
    if (phase_ == Phase::kQueued) {
        phase_ = Phase::kLongQueued;
        next_step_ = kNever;
        say(address_.waiting_text() + "; waiting for it to leave", Severity::kWarning);
        return;
    }
    try {
        connection_.emplace(address_);
        phase_ = Phase::kQueued;
        next_step_ = Clock::now() +
                     std::chrono::milliseconds(std::llround(address_.timeout_s * 1000));
    } catch (const NothingListens& error) {
        fail(error, Severity::kInformation);  // normal while the host starts
    } catch (const ControlError& error) {
        fail(error, Severity::kError);
    }
}

void ControlProcess::push() {
    try {
        connection_->wait_for_turn();
        const std::vector<std::string> rejected =
            sender_.make_play(*connection_, tables_);
        for (const std::string& what : rejected) {
            complain(Severity::kError, "kestan rejected the " + what);
        }
        phase_ = Phase::kIdle;
        next_step_ = kNever;
        said_.clear();
        sent_at_ = time_of_day();
        report_sent(rejected.size());
    } catch (const ControlError& error) {
        fail(error, Severity::kError);
    }
    connection_.reset();
}

void ControlProcess::fail(const ControlError& error, Severity severity) {
    say(error.what(), severity);
    phase_ = Phase::kDue;
    next_step_ = Clock::now() + back_off_;
    back_off_ = std::min(2 * back_off_, kLongestBackOff);
}

void ControlProcess::say(const std::string& reason, Severity severity) {
    if (reason == said_) return;
    said_ = reason;
    complain(severity, reason);
    notify_service_manager("READY=1\nSTATUS=waits for Kestan: " +
                           reason.substr(0, reason.find('\n')));
}

void ControlProcess::report_sent(std::size_t rejected) {
    if (sent_at_.empty()) return;  // the status says what it waits for
    std::string status =
        fmt::format("sent {} tables at {}", table_count(tables_) - rejected, sent_at_);
    if (rejected != 0)
        status += fmt::format(", kestan rejected {}: see its log", rejected);
    if (!mistake_at_.empty()) {
        status = fmt::format("the files of {} have a mistake: what was sent at {} stays",
                             mistake_at_, sent_at_);
    }
    notify_service_manager("READY=1\nSTATUS=" + status);
}

void ControlProcess::kick_watchdog() {
    if (Clock::now() < next_kick_) return;
    notify_service_manager("WATCHDOG=1");
    next_kick_ = Clock::now() + watchdog_time() / 3;
}

int ControlProcess::milliseconds_to_next_step() const {
    const Clock::time_point next = std::min(next_step_, next_kick_);
    if (next == kNever) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}
