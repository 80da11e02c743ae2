#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <thrift/TOutput.h>

#include "app/cmd_options.h"
#include "app/output.h"
#include "app/standard_descriptors.h"
#include "app/start_notification.h"
#include "control/mux_server.h"
#include "framework/log.h"
#include "framework/service_state.h"
#include "framework/watchdog.h"
#include "mux/muxer.h"
#include "thrift/instance_ports.h"
#include "thrift/retrying_server_socket.h"

namespace {

constexpr std::uint32_t kKickIntervalS = 5;

cmd_options options_or_exit(int argc, char** argv) {
    try {
        return parse_options(argc, argv);
    } catch (const std::string& error) {
        std::cerr << error << std::endl;
        exit(1);
    }
}

// Without exit handlers: nothing has started that they could end.
[[noreturn]] void print_version_and_exit() {
    std::putchar('\n');
    std::puts("Version: " KESTAN_VERSION);
    std::fflush(stdout);
    _exit(0);
}

void set_up_logging(const cmd_options& options) {
    log_setup(options.level,
              options.console ? kLogToSystem | kLogToConsole : kLogToSystem);
    apache::thrift::GlobalOutput.setOutputFunction([](const char* message) {
        if (RetryingServerSocket::is_accepting()) return;
        log_function(kLogWarning, 0, "%s", message);
    });
}

}  // namespace

int main(int argc, char** argv) {
    open_standard_descriptors();
    const cmd_options options = options_or_exit(argc, argv);
    if (options.version) print_version_and_exit();
    if (options.help) print_usage(options, 0);
    set_up_logging(options);
    const instance_ports ports = ports_of(options.set);

    switch (open_output(options)) {
        case output_result::kReady:
            break;
        case output_result::kFailed:
            return 1;
        case output_result::kBadAddress:
            print_usage(options, 1);
    }
    muxer_create(static_cast<std::uint32_t>(options.bitrate), send_output);
    if (StartMuxServer(ports.control) != 0) return 1;

    SignalServiceIsStarted(0);
    send_start_notification(ports.notification);
    const int watchdog_handle = watchdog_register_task();
    if (watchdog_handle == 0) {
        log_function(kLogError, 0, "Couldn't register task for WD");
    }
    muxer_run(watchdog_handle, kKickIntervalS);
}
