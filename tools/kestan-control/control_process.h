#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/notification_server.h"
#include "tools/multiplex.h"

// A control process that stays: keeps the tables of some files on air.
//
// Kestan keeps nothing across a restart: all tables are pushed when the process starts
// and after every start notification. The notification can come before Kestan's control
// port is open, so a push is tried again, with back-off, for a few seconds. SIGHUP reads
// the files again and pushes them, and withdraws what they no longer have; a mistake in
// them leaves everything as it was. SIGINT and SIGTERM end the process.
//
// The control connection is held only while tables are pushed. One thread, besides that
// of the notification's service.
class ControlProcess {
public:
    // Reads the files and opens the notification's port; the three signals are blocked
    // from here on. Raises FileMistake and std::runtime_error.
    ControlProcess(const ControlAddress& address, std::vector<std::string> files);
    ~ControlProcess();
    ControlProcess(const ControlProcess&) = delete;
    ControlProcess& operator=(const ControlProcess&) = delete;

    // Runs until SIGINT or SIGTERM. Raises std::runtime_error when the notification's
    // service ends.
    void run();

private:
    using Clock = std::chrono::steady_clock;

    // False when the process is to end.
    bool on_signal();
    void on_notification();
    void read_again();
    void request_push();
    void try_push();
    [[nodiscard]] int milliseconds_to_next_try() const;

    ControlAddress address_;
    std::vector<std::string> files_;
    Multiplex tables_;
    std::optional<Multiplex> on_air_;  // pushed since Kestan's start, as far as is known
    int signals_;
    NotificationServer notifications_;
    int tries_left_ = 0;
    Clock::time_point next_try_;
    std::chrono::milliseconds back_off_{};
};

#endif
