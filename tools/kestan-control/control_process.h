#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/table_files.h"
#include "tools/kestan-control/check.h"
#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/notification_server.h"
#include "tools/kestan-control/outgoing_tables.h"
#include "tools/kestan-control/push.h"
#include "tools/kestan-control/service_signals.h"

// A control process that runs until a signal ends it. It keeps the tables of some files
// on air, and no other tables of this program.
//
// Kestan keeps no table across a restart: all tables are pushed when the process starts
// and after every start notification. A push that fails is tried again until it succeeds.
// While Kestan serves another client, the process waits for its turn. A push sends only
// the differences if no start notification has come since the last push succeeded.
//
// The first start notification is answered at once, and further ones together, once a
// second: everybody on this host can send them.
//
// SIGHUP reads the files again and pushes what has changed; a mistake in any of them
// leaves everything as it was. SIGINT and SIGTERM end the process. A service manager is
// told when the first push has been tried, and how each push went.
//
// The control connection is held only while tables are pushed. One thread uses this
// class; the notification's service and the signals have one each.
class ControlProcess {
public:
    // Reads the files and opens the notification's port. Blocks the three signals. Throws
    // std::runtime_error if each file has an error, or if the port is taken. `clears` is
    // whether the first push withdraws all tables.
    ControlProcess(const ControlAddress& address, std::vector<std::string> paths,
                   const CheckSettings& check, bool raises_versions, bool clears);
    ControlProcess(const ControlProcess&) = delete;
    ControlProcess& operator=(const ControlProcess&) = delete;

    // Runs until SIGINT or SIGTERM. Throws std::runtime_error if the notification's
    // service ends.
    void run();

private:
    using Clock = std::chrono::steady_clock;

    static constexpr Clock::time_point kNever = Clock::time_point::max();

    enum class Phase {
        kIdle,        // nothing to push
        kDue,         // to connect at next_step_
        kQueued,      // connected, waiting for the turn; to print a message at next_step_
        kLongQueued,  // the same, the message is printed
    };

    void on_notification();
    void read_again();

    // Makes a push due at this time or earlier, unless one waits for its turn already.
    void request_push(Clock::time_point when);

    // Pushes the tables. REQUIRES: connection_ has its turn or is lost.
    void push();
    void fail(const ControlError& error, Severity severity);

    // Prints why nothing is sent, and makes it the status. Prints the same reason only
    // once until the next success.
    void say(const std::string& reason, Severity severity);

    // Tells the service manager what this process knows: Kestan may have ended since.
    void report_sent(std::size_t rejected);

    void kick_watchdog();

    // Does what is due at next_step_.
    void take_step();

    [[nodiscard]] int milliseconds_to_next_step() const;

    ServiceSignals signals_;
    ControlAddress address_;
    TableFiles files_;
    CheckSettings check_;
    OutgoingTables outgoing_;
    Multiplex tables_;  // to be on air
    TableSender sender_;
    NotificationServer notifications_;

    Phase phase_ = Phase::kIdle;
    Clock::time_point next_step_ = kNever;         // kNever unless due or queued
    std::optional<ControlConnection> connection_;  // while queued
    std::chrono::milliseconds back_off_{};
    Clock::time_point answer_;  // the last or the next push for a start notification
    std::string said_;
    std::string sent_at_;     // a time of day; empty before the first success
    std::string mistake_at_;  // empty if the files have no mistake
    Clock::time_point next_kick_;
};

#endif
