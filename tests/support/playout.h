#ifndef KESTAN_TESTS_SUPPORT_PLAYOUT_H
#define KESTAN_TESTS_SUPPORT_PLAYOUT_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/pacing_loop.h"

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
    [[nodiscard]] std::vector<std::uint16_t> pids() const;  // of the packets
};

// The pacing loop on the simulated clock. One at a time.
class Playout {
public:
    explicit Playout(std::uint32_t bitrate_kbps);
    ~Playout();

    // Calls `action` when the loop sleeps for the first time at or after `ns` from the
    // start of run_for. At that moment the control thread could take the muxer's mutex.
    void at(std::int64_t ns, std::function<void()> action);

    // If set, run_for calls this with every datagram and keeps none.
    std::function<void(const Datagram&)> on_datagram;

    // Runs the pacing loop for this long and returns what it sent.
    std::vector<Datagram> run_for(std::int64_t ns);

    int watchdog_handle = 77;

private:
    PacingLoop loop_;
    std::multimap<std::int64_t, std::function<void()>> actions_;
};

#endif
