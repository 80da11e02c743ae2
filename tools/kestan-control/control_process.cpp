#include "tools/kestan-control/control_process.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <system_error>
#include <utility>

#include "thrift/instance_ports.h"
#include "tools/service/service_manager.h"

namespace {

// The wait after the first failure. It doubles with each further failure.
constexpr std::chrono::milliseconds kFirstBackOff{50};
constexpr std::chrono::milliseconds kLongestBackOff{3000};

// Between two answers to start notifications.
constexpr std::chrono::seconds kAnswerInterval{1};

JoinedFiles first_files(const TableFiles& files, const CheckSettings& check) {
    const auto valid = valid_tables_to_send(files, check, std::cerr);
    if (!valid) throw std::runtime_error("no file can be served");
    return *valid;
}

TableSender make_sender(const ControlAddress& address, bool clears) {
    OnAirRecord record("played", address,
                       "a start without it withdraws all tables first");
    std::optional<OnAir> on_air = record.load();
    if (clears) on_air.reset();
    return {std::cout, std::move(record), std::move(on_air)};
}

}  // namespace

ControlProcess::ControlProcess(const ControlAddress& address,
                               std::vector<std::string> paths, const CheckSettings& check,
                               bool raises_versions, bool clears)
    : address_(address),
      files_(std::move(paths), FileKind::kRegular),
      check_(check),
      outgoing_(address, raises_versions),
      tables_(outgoing_.take(first_files(files_, check_))),
      sender_(make_sender(address, clears)),
      notifications_(ports_of(address.set).notification) {}

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
        if (events[0].revents != 0) return;
        if (events[1].revents != 0) read_again();
        if (events[2].revents != 0) on_notification();
        if (events[3].revents != 0) push();
        if (has_next_step() && Clock::now() >= next_step_) take_step();
    }
}

void ControlProcess::read_again() {
    signals_.take_reload();
    const auto files = tables_to_send(files_, check_, std::cerr);
    if (!files) {
        std::cerr << "the tables read before stay" << std::endl;
        return;
    }
    tables_ = outgoing_.take(*files);
    std::cout << "files read again, " << bit_rate_line(tables_) << std::endl;
    if (phase_ == Phase::kIdle && sender_.plays(tables_)) {
        std::cout << "no table has changed" << std::endl;
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
    next_step_ = phase_ == Phase::kDue ? std::min(next_step_, when) : when;
    phase_ = Phase::kDue;
}

void ControlProcess::take_step() {
    if (phase_ == Phase::kQueued) {
        phase_ = Phase::kLongQueued;
        say(address_.waiting_text() + "; waiting for it to leave");
        return;
    }
    try {
        connection_.emplace(address_);
        phase_ = Phase::kQueued;
        next_step_ = Clock::now() +
                     std::chrono::milliseconds(std::llround(address_.timeout_s * 1000));
    } catch (const ControlError& error) {
        fail(error);
    }
}

void ControlProcess::push() {
    try {
        connection_->wait_for_turn();
        const std::vector<std::string> rejected =
            sender_.make_play(*connection_, tables_);
        for (const std::string& what : rejected) {
            std::cerr << "kestan rejected the " << what << std::endl;
        }
        phase_ = Phase::kIdle;
        said_.clear();
        notify_service_manager(
            "READY=1\nSTATUS=" +
            (rejected.empty()
                 ? "on air, " + bit_rate_line(tables_)
                 : "kestan rejected " + std::to_string(rejected.size()) + " tables"));
    } catch (const ControlError& error) {
        fail(error);
    }
    connection_.reset();
}

void ControlProcess::fail(const ControlError& error) {
    say(error.what());
    phase_ = Phase::kDue;
    next_step_ = Clock::now() + back_off_;
    back_off_ = std::min(2 * back_off_, kLongestBackOff);
}

void ControlProcess::say(const std::string& reason) {
    if (reason == said_) return;
    said_ = reason;
    std::cerr << reason << std::endl;
    const std::string line = reason.substr(0, reason.find('\n'));
    notify_service_manager("READY=1\nSTATUS=" + line);
}

int ControlProcess::milliseconds_to_next_step() const {
    if (!has_next_step()) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(next_step_ - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}
