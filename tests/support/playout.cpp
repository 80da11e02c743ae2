#include "tests/support/playout.h"

#include <utility>

#include "mux/muxer.h"
#include "tests/support/simulated_clock.h"

namespace {

constexpr int kWatchdogHandle = 77;
constexpr std::uint32_t kKickIntervalS = 5;

struct EndOfRun {};

Playout* current = nullptr;
std::vector<Datagram> sent;

int send(const std::uint8_t* data, std::uint32_t length) {
    Datagram datagram{simulated_clock::now_ns(), {data, data + length}};
    if (current->on_datagram) {
        current->on_datagram(datagram);
    } else {
        sent.push_back(std::move(datagram));
    }
    return -1;  // the loop must not care
}

}  // namespace

std::size_t Datagram::packets() const {
    return bytes.size() / kTsPacketSize;
}

std::vector<std::uint16_t> Datagram::pids() const {
    std::vector<std::uint16_t> pids;
    for (std::size_t at = 0; at < bytes.size(); at += kTsPacketSize) {
        pids.push_back(pid_of(reinterpret_cast<const std::uint8_t*>(&bytes[at])));
    }
    return pids;
}

Playout::Playout(std::uint32_t bitrate_kbps) {
    muxer_create(bitrate_kbps, send);
    current = this;
}

Playout::~Playout() {
    delete std::exchange(the_muxer, nullptr);
    current = nullptr;
}

void Playout::at(std::int64_t ns, std::function<void()> action) {
    actions_.emplace(ns, std::move(action));
}

std::vector<Datagram> Playout::run_for(std::int64_t ns) {
    const std::int64_t start = simulated_clock::now_ns();
    simulated_clock::on_sleep = [&] {
        const std::int64_t elapsed = simulated_clock::now_ns() - start;
        while (!actions_.empty() && actions_.begin()->first <= elapsed) {
            const auto action = std::move(actions_.begin()->second);
            actions_.erase(actions_.begin());
            action();
        }
        if (elapsed >= ns) throw EndOfRun();
    };
    try {
        muxer_run(kWatchdogHandle, kKickIntervalS);
    } catch (const EndOfRun&) {
        simulated_clock::on_sleep = nullptr;
    }
    return std::exchange(sent, {});
}
