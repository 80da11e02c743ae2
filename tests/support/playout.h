#ifndef KESTAN_TESTS_SUPPORT_PLAYOUT_H
#define KESTAN_TESTS_SUPPORT_PLAYOUT_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct Datagram {
    std::int64_t time_ns;  // on the simulated clock, when it was sent
    std::string bytes;

    [[nodiscard]] std::size_t packets() const;
    [[nodiscard]] std::vector<std::uint16_t> pids() const;  // of the packets
};

// The process's muxer and its pacing loop on the simulated clock. One at a time.
class Playout {
public:
    explicit Playout(std::uint32_t bitrate_kbps);
    ~Playout();
    Playout(const Playout&) = delete;
    Playout& operator=(const Playout&) = delete;

    // Does `action` where the loop sleeps for the first time at or after `ns` from the
    // start of run_for: there the control thread would get at the streams.
    void at(std::int64_t ns, std::function<void()> action);

    // Calls this with every datagram instead of keeping it.
    std::function<void(const Datagram&)> on_datagram;

    // Runs the pacing loop for this long and returns what it sent.
    std::vector<Datagram> run_for(std::int64_t ns);

private:
    std::multimap<std::int64_t, std::function<void()>> actions_;
};

#endif
