#include "tools/kestan-control/control_process.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
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

int open_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const int fd = signalfd(-1, &set, SFD_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
}

JoinedFiles first_files(const TableFiles& files, const CheckSettings& check) {
    const auto right = right_tables_to_send(files, check, std::cerr);
    if (!right) throw std::runtime_error("no file can be served");
    return *right;
}

}  // namespace

// The signals are blocked first: one that comes while the files are read has its effect
// later, and the notification's thread inherits the mask.
ControlProcess::ControlProcess(const ControlAddress& address,
                               std::vector<std::string> paths, const CheckSettings& check,
                               OutgoingTables outgoing)
    : address_(address),
      signals_(open_signals()),
      files_(std::move(paths)),
      check_(check),
      outgoing_(std::move(outgoing)),
      tables_(outgoing_.take(first_files(files_, check_))),
      sender_(std::cout),
      notifications_(ports_of(address.set).notification) {}

ControlProcess::~ControlProcess() {
    close(signals_);
}

void ControlProcess::run() {
    std::cout << bit_rate_line(tables_) << std::endl;
    request_push();
    for (;;) {
        pollfd events[] = {{signals_, POLLIN, 0},
                           {notifications_.fd(), POLLIN, 0},
                           {waiting_ ? waiting_->fd() : -1, POLLIN, 0}};
        if (poll(events, std::size(events), milliseconds_to_next_step()) < 0 &&
            errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (events[0].revents != 0 && !on_signal()) return;
        if (events[1].revents != 0) on_notification();
        if (events[2].revents != 0) push();
        if (next_step() && Clock::now() >= *next_step()) take_step();
    }
}

bool ControlProcess::on_signal() {
    signalfd_siginfo info{};
    if (read(signals_, &info, sizeof info) != sizeof info) return true;
    if (info.ssi_signo != SIGHUP) return false;
    read_again();
    return true;
}

void ControlProcess::read_again() {
    const auto files = tables_to_send(files_, check_, std::cerr);
    if (!files) {
        std::cerr << "the tables read before stay" << std::endl;
        return;
    }
    tables_ = outgoing_.take(*files);
    std::cout << "files read again, " << bit_rate_line(tables_) << std::endl;
    if (!is_push_due_ && sender_.plays(tables_)) {
        std::cout << "no table has changed" << std::endl;
        return;
    }
    request_push();
}

void ControlProcess::on_notification() {
    eventfd_t count = 0;
    eventfd_read(notifications_.fd(), &count);
    if (notifications_.has_ended()) {
        throw std::runtime_error(
            "the service of kestan's start notification has ended: start it again");
    }
    std::cout << "kestan has started" << std::endl;
    sender_.forget();
    request_push();
}

void ControlProcess::request_push() {
    is_push_due_ = true;
    back_off_ = kFirstBackOff;
    next_try_ = Clock::now();
}

void ControlProcess::take_step() {
    if (waiting_) {
        has_said_waiting_ = true;
        say(address_.waiting_text() + "; waiting for it to leave");
        return;
    }
    try {
        waiting_.emplace(address_);
        connected_ = Clock::now();
        has_said_waiting_ = false;
    } catch (const ControlError& error) {
        fail(error);
    }
}

void ControlProcess::push() {
    try {
        waiting_->wait_for_turn();
        const std::vector<std::string> rejected = sender_.make_play(*waiting_, tables_);
        for (const std::string& what : rejected) {
            std::cerr << "kestan rejected the " << what << std::endl;
        }
        is_push_due_ = false;
        said_.clear();
        notify_service_manager(
            "READY=1\nSTATUS=" +
            (rejected.empty()
                 ? "on air, " + bit_rate_line(tables_)
                 : "kestan rejected " + std::to_string(rejected.size()) + " tables"));
    } catch (const ControlError& error) {
        fail(error);
    }
    waiting_.reset();
}

void ControlProcess::fail(const ControlError& error) {
    say(error.what());
    next_try_ = Clock::now() + back_off_;
    back_off_ = std::min(2 * back_off_, kLongestBackOff);
}

void ControlProcess::say(const std::string& reason) {
    if (reason == said_) return;
    said_ = reason;
    std::cerr << reason << std::endl;
    const std::string line = reason.substr(0, reason.find('\n'));
    notify_service_manager("READY=1\nSTATUS=" + line);
}

std::optional<ControlProcess::Clock::time_point> ControlProcess::next_step() const {
    if (!waiting_) return is_push_due_ ? std::optional(next_try_) : std::nullopt;
    if (has_said_waiting_) return std::nullopt;
    return connected_ +
           std::chrono::milliseconds(std::llround(address_.timeout_s * 1000));
}

int ControlProcess::milliseconds_to_next_step() const {
    const auto step = next_step();
    if (!step) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*step - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}
