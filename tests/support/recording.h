#ifndef KESTAN_TESTS_SUPPORT_RECORDING_H
#define KESTAN_TESTS_SUPPORT_RECORDING_H

#include <algorithm>
#include <cstdint>
#include <future>
#include <vector>

#include "tests/support/control_client.h"
#include "tests/support/daemon.h"

// How a daemon keeps its time in real life. It plays a PAT of 30 packets in 200 ms; the
// kernel's time stamps of these are held against their cadence.
constexpr std::int64_t kCadenceNs = 6666666;

inline void push_pat() {
    orvel::thrift::dvb_tables::PAT pat;
    for (int number = 1; number <= 1000; ++number) {
        auto& program = pat.programs.emplace_back();
        program.program_number = program.pid = number;
    }
    ControlClient().NewPAT(pat);
}

struct Recording {
    std::vector<UdpCapture::Datagram> datagrams;

    // The PAT's packets.
    struct Packet {
        double time_s;  // on the civil clock
        // Behind a cadence without a gap that no packet is ahead of: a packet that is
        // lost makes all after it late.
        double late_s;
    };
    std::vector<Packet> packets;

    [[nodiscard]] double latest_s(double from_s = 0) const {
        double late_s = 0;
        for (const Packet& packet : packets) {
            if (packet.time_s >= from_s) late_s = std::max(late_s, packet.late_s);
        }
        return late_s;
    }
};

// What comes while `action` is done, which begins a little later.
template <typename Action>
Recording record_while(UdpCapture& capture, const Action& action) {
    using namespace std::chrono_literals;
    auto acting = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(150ms);
        action();
    });
    Recording recording;
    capture.drain();
    do {
        for (auto& datagram : capture.receive_for(50ms)) {
            recording.datagrams.push_back(std::move(datagram));
        }
    } while (acting.wait_for(0s) != std::future_status::ready);
    acting.get();
    std::vector<std::int64_t> off;
    for (const auto& datagram : recording.datagrams) {
        for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
            if ((datagram.bytes[at + 1] & 0x1F) != 0 || datagram.bytes[at + 2] != 0)
                continue;
            off.push_back(datagram.time_ns - recording.datagrams[0].time_ns -
                          static_cast<std::int64_t>(off.size()) * kCadenceNs);
            recording.packets.push_back(
                {1e-9 * static_cast<double>(datagram.time_ns), 0});
        }
    }
    const auto least = std::min_element(off.begin(), off.end());
    for (std::size_t i = 0; i < off.size(); ++i) {
        recording.packets[i].late_s = 1e-9 * static_cast<double>(off[i] - *least);
    }
    return recording;
}

#endif
