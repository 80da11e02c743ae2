#include "tools/kestan-control/control_process.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>
#include <utility>

#include "thrift/instance_ports.h"
#include "tools/json/multiplex_file.h"
#include "tools/kestan-control/push.h"

namespace {

// 50 ms, then twice as long each time: eight tries in 6.35 s.
constexpr std::chrono::milliseconds kFirstBackOff{50};
constexpr int kTries = 8;

int open_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    const int fd = signalfd(-1, &set, SFD_CLOEXEC);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    return fd;
}

}  // namespace

// The signals are blocked before the notification's thread begins and inherits the mask.
ControlProcess::ControlProcess(const ControlAddress& address,
                               std::vector<std::string> files)
    : address_(address),
      files_(std::move(files)),
      tables_(read_multiplex_files(files_)),
      signals_(open_signals()),
      notifications_(ports_of(address.set).notification) {}

ControlProcess::~ControlProcess() {
    close(signals_);
}

void ControlProcess::run() {
    request_push();
    for (;;) {
        pollfd events[] = {{signals_, POLLIN, 0}, {notifications_.fd(), POLLIN, 0}};
        if (poll(events, 2, milliseconds_to_next_try()) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (events[0].revents != 0 && !on_signal()) return;
        if (events[1].revents != 0) on_notification();
        if (tries_left_ != 0 && Clock::now() >= next_try_) try_push();
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
    try {
        tables_ = read_multiplex_files(files_);
    } catch (const FileMistake& mistake) {
        std::cerr << mistake.what() << "\nthe tables read before stay" << std::endl;
        return;
    }
    std::cout << "files read again" << std::endl;
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
    on_air_.reset();
    request_push();
}

void ControlProcess::request_push() {
    tries_left_ = kTries;
    back_off_ = kFirstBackOff;
    next_try_ = Clock::now();
}

void ControlProcess::try_push() {
    try {
        ControlConnection kestan(address_);
        if (on_air_) withdraw_tables(kestan, *on_air_, tables_);
        for (const std::string& what : push_tables(kestan, tables_, std::cout)) {
            std::cerr << "kestan rejected the " << what << std::endl;
        }
        on_air_ = tables_;
        tries_left_ = 0;
        return;
    } catch (const ControlError& error) {
        if (--tries_left_ == 0) {
            std::cerr << error.what() << "\nwaiting for kestan's start notification"
                      << std::endl;
        }
    }
    next_try_ = Clock::now() + back_off_;
    back_off_ *= 2;
}

int ControlProcess::milliseconds_to_next_try() const {
    if (tries_left_ == 0) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(next_try_ - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}
