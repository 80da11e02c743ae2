#ifndef KESTAN_TESTS_SUPPORT_DAEMON_H
#define KESTAN_TESTS_SUPPORT_DAEMON_H

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/udp_capture.h"
#include "tests/support/wire.h"

// A daemon that plays to a socket of the test's.
class Daemon {
public:
    // `address` is one of this host's; `command` starts the daemon.
    explicit Daemon(std::vector<std::string> more = {},
                    const std::string& address = "127.0.0.1",
                    std::vector<std::string> command = {KESTAN_BIN "/kestan"},
                    const std::vector<std::string>& environment = {})
        : program_(arguments(std::move(command), address, more), environment) {}

    std::vector<UdpCapture::Datagram> play_for(std::chrono::milliseconds duration) {
        capture_.drain();
        return capture_.receive_for(duration);
    }

    // Plays into a checked receiver.
    void play_for(std::chrono::milliseconds duration, Wire& wire) {
        for (const auto& datagram : play_for(duration)) wire.push(datagram.bytes);
    }

    [[nodiscard]] const Program& program() const { return program_; }
    Program& program() { return program_; }
    UdpCapture& capture() { return capture_; }

private:
    std::vector<std::string> arguments(std::vector<std::string> all,
                                       const std::string& address,
                                       const std::vector<std::string>& more) const {
        const std::string destination = address + "/" + std::to_string(kPort);
        all.insert(all.end(), {"-c", "-O", destination});
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    static constexpr int kPort = 5432;

    UdpCapture capture_{kPort};
    Program program_;
};

#endif
