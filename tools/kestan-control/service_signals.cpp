#include "tools/kestan-control/service_signals.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <initializer_list>
#include <system_error>

#include "tools/service/service_manager.h"

namespace {

// The manual promises two seconds.
constexpr std::chrono::milliseconds kGrace{1500};

sigset_t set_of(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    return set;
}

int opened(int fd, const char* what) {
    if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
    return fd;
}

}  // namespace

ServiceSignals::ServiceSignals() {
    const sigset_t all = set_of({SIGHUP, SIGINT, SIGTERM});
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    const sigset_t hangup = set_of({SIGHUP});
    reload_ = opened(signalfd(-1, &hangup, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
    end_ = opened(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread_ = std::thread([this] { watch(); });
}

ServiceSignals::~ServiceSignals() {
    destroyed_.set_value();
    pthread_kill(thread_.native_handle(), SIGINT);  // ends the wait for a signal
    thread_.join();
    for (const int fd : {reload_, end_}) close(fd);
}

void ServiceSignals::take_reload() const {
    signalfd_siginfo info{};
    while (read(reload_, &info, sizeof info) > 0) {
    }
}

void ServiceSignals::watch() {
    const sigset_t ends = set_of({SIGINT, SIGTERM});
    int signal = 0;
    sigwait(&ends, &signal);
    eventfd_write(end_, 1);
    if (destroyed_.get_future().wait_for(kGrace) == std::future_status::ready) return;
    notify_service_manager("STOPPING=1\nSTATUS=has ended before its work was done");
    _exit(0);
}
