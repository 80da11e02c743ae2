#ifndef KESTAN_TESTS_SUPPORT_PLAYOUT_H
#define KESTAN_TESTS_SUPPORT_PLAYOUT_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/pacing_loop.h"
#include "tests/support/simulated_clock.h"

// Calls `action` with each packet of `packets`.
template <typename Action>
void for_each_packet(const std::string& packets, Action action) {
    for (std::size_t at = 0; at < packets.size(); at += kTsPacketSize) {
        action(reinterpret_cast<const std::uint8_t*>(&packets[at]));
    }
}

struct Datagram {
    std::int64_t time_ns;  // on the simulated clock, when it was sent
    std::string bytes;

    [[nodiscard]] std::size_t packets() const { return bytes.size() / kTsPacketSize; }
    [[nodiscard]] std::vector<std::uint16_t> pids() const {
        std::vector<std::uint16_t> pids;
        for_each_packet(bytes,
                        [&](const auto* packet) { pids.push_back(pid_of(packet)); });
        return pids;
    }
};

// The pacing loop on the simulated clock. One at a time.
class Playout {
public:
    explicit Playout(std::uint32_t bitrate_kbps) : loop_(bitrate_kbps, send) {
        current_ = this;
    }
    ~Playout() { current_ = nullptr; }

    // Calls `action` when the loop sleeps for the first time at or after `ns` from the
    // start of run_for. At that moment the control thread could take the muxer's mutex.
    void at(std::int64_t ns, std::function<void()> action) {
        actions_.emplace(ns, std::move(action));
    }

    // If set, run_for calls this with every datagram and keeps none.
    std::function<void(const Datagram&)> on_datagram;

    // Runs the pacing loop for this long and returns what it sent.
    std::vector<Datagram> run_for(std::int64_t ns) {
        const std::int64_t start = simulated_clock::now_ns();
        simulated_clock::on_sleep = [&] {
            const std::int64_t elapsed = simulated_clock::now_ns() - start;
            while (!actions_.empty() && actions_.begin()->first <= elapsed) {
                actions_.extract(actions_.begin()).mapped()();
            }
            if (elapsed >= ns) throw EndOfRun();
        };
        PacingLoop::run(watchdog_handle);
        simulated_clock::on_sleep = nullptr;
        return std::exchange(sent_, {});
    }

    int watchdog_handle = 77;

private:
    static int send(const std::uint8_t* data, std::uint32_t length) {
        Datagram datagram{simulated_clock::now_ns(), {data, data + length}};
        if (current_->on_datagram) {
            current_->on_datagram(datagram);
        } else {
            current_->sent_.push_back(std::move(datagram));
        }
        return -1;  // the loop must not care
    }

    inline static Playout* current_ = nullptr;
    PacingLoop loop_;
    std::vector<Datagram> sent_;
    std::multimap<std::int64_t, std::function<void()>> actions_;
};

#endif
