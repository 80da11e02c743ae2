#ifndef KESTAN_TOOLS_KESTAN_CONTROL_SERVICE_SIGNALS_H
#define KESTAN_TOOLS_KESTAN_CONTROL_SERVICE_SIGNALS_H

#include <future>
#include <thread>

// The signals of a process that serves: SIGHUP, and SIGINT and SIGTERM, which end it.
//
// The process ends in time also if it hangs in a call or reads from a disk that does not
// answer: a thread ends it with status 0 if this object still exists 1.5 s after SIGINT
// or SIGTERM, and tells the service manager so. So it is the first object that such a
// process makes, and the last one that it destroys.
class ServiceSignals {
public:
    // Blocks the signals in this thread and in those that it starts later.
    ServiceSignals();
    ~ServiceSignals();
    ServiceSignals(const ServiceSignals&) = delete;
    ServiceSignals& operator=(const ServiceSignals&) = delete;

    // Returns a descriptor that is readable from SIGINT or SIGTERM on.
    [[nodiscard]] int end_fd() const { return end_; }

    // Returns a descriptor that is readable after SIGHUP, until take_reload().
    [[nodiscard]] int reload_fd() const { return reload_; }
    void take_reload() const;

private:
    void watch();

    int reload_ = -1;  // signalfd
    int end_ = -1;     // eventfd
    std::promise<void> destroyed_;
    std::thread thread_;
};

#endif
