#ifndef KESTAN_TESTS_SUPPORT_UDP_CAPTURE_H
#define KESTAN_TESTS_SUPPORT_UDP_CAPTURE_H

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "mux/slot_time.h"
#include "tools/udp_receiver.h"

// Keeps the datagrams that come to a port, from the construction on.
class UdpCapture {
public:
    // `address` is one of this host's, or a group that comes by its loopback interface.
    explicit UdpCapture(int port, const std::string& address = "0.0.0.0")
        : receiver_(parse_endpoint(address + ':' + std::to_string(port)),
                    address == "0.0.0.0" ? "" : "lo") {}

    // In the network namespace of this name.
    static std::unique_ptr<UdpCapture> in_namespace(const std::string& name, int port) {
        const auto open_there = [&] {
            const int fd = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
            const bool entered = setns(fd, CLONE_NEWNET) == 0;
            close(fd);
            if (!entered) throw std::runtime_error("cannot enter " + name);
            return std::make_unique<UdpCapture>(port);
        };
        return std::async(std::launch::async, open_there).get();  // a thread enters alone
    }

    struct Datagram {
        std::int64_t time_ns;  // when the kernel received it, on the civil clock
        std::string bytes;
    };

    // What comes within `duration`.
    [[nodiscard]] std::vector<Datagram> receive_for(std::chrono::nanoseconds duration) {
        using std::chrono::system_clock;
        std::vector<Datagram> datagrams;
        const std::int64_t now = steady_now_ns();
        const std::int64_t civil = system_clock::now().time_since_epoch().count() - now;
        const std::int64_t end = now + duration.count();
        while (steady_now_ns() < end) {
            receiver_.receive(
                end - steady_now_ns(), [&](auto time, auto* data, auto size) {
                    datagrams.push_back({time + civil, {data, data + size}});
                });
        }
        return datagrams;
    }

    // Forgets what has come and was not asked for.
    void drain() {
        for (bool is_empty = false; !is_empty;) {
            is_empty = true;
            receiver_.receive(0, [&](auto...) { is_empty = false; });
        }
    }

private:
    UdpReceiver receiver_;
};

#endif
