#ifndef KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H
#define KESTAN_TOOLS_KESTAN_CONTROL_CONTROL_PROCESS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/kestan-control/check.h"
#include "tools/kestan-control/control_connection.h"
#include "tools/kestan-control/notification_server.h"
#include "tools/kestan-control/outgoing_tables.h"
#include "tools/kestan-control/push.h"
#include "tools/kestan-control/table_files.h"

// A control process that runs until a signal ends it. It keeps the tables of some files
// on air, and no other tables.
//
// Kestan keeps no table across a restart: all tables are pushed when the process starts
// and after every start notification. A push that fails is tried again until it succeeds.
// While Kestan serves another client, the process waits for its turn. A push replaces
// what Kestan plays. It sends only the differences if no start notification has come
// since the last push succeeded.
//
// SIGHUP reads the files again and pushes what has changed; a mistake in any of them
// leaves everything as it was. SIGINT and SIGTERM end the process. A service manager is
// told when the first push has been tried, and how each push went.
//
// The control connection is held only while tables are pushed. One thread uses this
// class; the notification's service has a second one.
class ControlProcess {
public:
    // Reads the files and opens the notification's port. Blocks the three signals. Throws
    // std::runtime_error if each file has an error, or if the port is taken.
    ControlProcess(const ControlAddress& address, std::vector<std::string> paths,
                   const CheckSettings& check, OutgoingTables outgoing);
    ~ControlProcess();
    ControlProcess(const ControlProcess&) = delete;
    ControlProcess& operator=(const ControlProcess&) = delete;

    // Runs until SIGINT or SIGTERM. Throws std::runtime_error if the notification's
    // service ends.
    void run();

private:
    using Clock = std::chrono::steady_clock;

    // Returns false when the process is to end.
    bool on_signal();
    void on_notification();
    void read_again();
    void request_push();

    // Pushes the tables. REQUIRES: the waiting connection has its turn or is lost.
    void push();
    void fail(const ControlError& error);

    // Prints why nothing is sent. Prints the same reason only once until the next
    // success.
    void say(const std::string& reason);

    // Connects if a push is due. Prints a message if the connection has waited for too
    // long.
    void take_step();

    // Returns when to take the next step, or nullopt if an event has to come first.
    [[nodiscard]] std::optional<Clock::time_point> next_step() const;
    [[nodiscard]] int milliseconds_to_next_step() const;

    ControlAddress address_;
    int signals_;
    TableFiles files_;
    CheckSettings check_;
    OutgoingTables outgoing_;
    Multiplex tables_;  // to be on air
    TableSender sender_;
    NotificationServer notifications_;

    bool is_push_due_ = false;
    std::optional<ControlConnection> waiting_;  // for its turn, since connected_
    Clock::time_point connected_;
    bool has_said_waiting_ = false;
    Clock::time_point next_try_;  // if is_push_due_ and not waiting_
    std::chrono::milliseconds back_off_{};
    std::string said_;
};

#endif
