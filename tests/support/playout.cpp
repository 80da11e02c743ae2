#include "tests/support/playout.h"

#include "tests/support/simulated_clock.h"

namespace {

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

std::vector<std::uint16_t> Datagram::pids() const {
    std::vector<std::uint16_t> pids;
    for_each_packet(bytes, [&](const auto* packet) { pids.push_back(pid_of(packet)); });
    return pids;
}

Playout::Playout(std::uint32_t bitrate_kbps) : loop_(bitrate_kbps, send) {
    current = this;
}

Playout::~Playout() {
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
            actions_.extract(actions_.begin()).mapped()();
        }
        if (elapsed >= ns) throw EndOfRun();
    };
    PacingLoop::run(watchdog_handle);
    simulated_clock::on_sleep = nullptr;
    return std::exchange(sent, {});
}
