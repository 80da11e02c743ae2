#ifndef KESTAN_TOOLS_KESTAN_INSERT_INSERTION_H
#define KESTAN_TOOLS_KESTAN_INSERT_INSERTION_H

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/kestan-insert/input.h"
#include "tools/kestan-insert/inserter.h"
#include "tools/kestan-insert/options.h"
#include "tools/kestan-insert/output.h"
#include "tools/kestan-insert/report.h"
#include "tools/receive/udp_receiver.h"

// One run of the program: waits for both streams and sends each datagram of INPUT on as
// soon as it is there. Messages go to standard error. One thread.
class Insertion {
public:
    // Throws std::runtime_error if the streams cannot be opened.
    explicit Insertion(const Options& options);

    // Runs for the duration of the options, or until `stop_requested` is not 0 or
    // standard input ends. Throws std::system_error if a stream fails.
    void run(const volatile std::sig_atomic_t& stop_requested);

    // Returns the report of the run so far.
    [[nodiscard]] Report report() const;

private:
    void wait(std::int64_t timeout_ns);
    void pass(std::int64_t now, std::uint8_t* datagram, std::size_t size);
    void every_second(std::int64_t now);
    void say_losses();
    void show_progress();
    void tell_service_manager();

    Options options_;
    Input input_;
    UdpReceiver tables_;
    Output output_;
    std::int64_t began_;
    Inserter inserter_;
    std::uint64_t unsent_ = 0;
    std::uint64_t losses_said_ = 0;
    std::string status_;    // as the service manager has it
    Report second_before_;  // of the line of progress
};

#endif
