#ifndef KESTAN_TESTS_SUPPORT_RECORDING_H
#define KESTAN_TESTS_SUPPORT_RECORDING_H

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/support/control_client.h"
#include "tests/support/daemon.h"

// How a daemon keeps its time in real life. It plays a PAT of 30 packets in 200 ms; the
// kernel's time stamps of these are held against their cadence while a test does
// something to the daemon.
class Recording {
public:
    static constexpr std::int64_t kCadenceNs = 6666666;

    // The PAT that the daemon has to play, pushed before the recording.
    static void push_pat() {
        orvel::thrift::dvb_tables::PAT pat;
        for (int number = 1; number <= 1000; ++number) {
            auto& program = pat.programs.emplace_back();
            program.program_number = program.pid = number;
        }
        ControlClient().NewPAT(pat);
    }

    // Records from now on.
    explicit Recording(Daemon& daemon) : Recording(daemon.capture()) {}
    explicit Recording(UdpCapture& capture)
        : thread_([this, &capture] {
              capture.drain();
              while (!stopped_) {
                  auto datagrams = capture.receive_for(kStep);
                  datagrams_.insert(datagrams_.end(), datagrams.begin(), datagrams.end());
              }
          }) {
        std::this_thread::sleep_for(3 * kStep);
    }
    ~Recording() { stop(); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    struct Packet {
        double time_s;  // on the civil clock
        // Behind a cadence without a gap that no packet is ahead of: a packet that is
        // lost makes all after it late.
        double late_s;
    };

    // Ends the recording; what it holds is checked by a receiver.
    std::vector<Packet> stop() {
        stopped_ = true;
        if (thread_.joinable()) thread_.join();
        Wire wire;
        std::vector<std::int64_t> times;
        for (const auto& datagram : datagrams_) {
            if (check_wire) wire.push(datagram.bytes);
            for (std::size_t at = 0; at < datagram.bytes.size(); at += kTsPacketSize) {
                const bool is_pat =
                    (datagram.bytes[at + 1] & 0x1F) == 0 && datagram.bytes[at + 2] == 0;
                if (is_pat) times.push_back(datagram.time_ns);
            }
        }
        return against_cadence(times);
    }

    // Everything that came, once it has ended.
    [[nodiscard]] const std::vector<UdpCapture::Datagram>& datagrams() const {
        return datagrams_;
    }

    bool check_wire = true;

private:
    static constexpr std::chrono::milliseconds kStep{50};

    static std::vector<Packet> against_cadence(std::vector<std::int64_t>& times) {
        std::vector<Packet> packets;
        std::int64_t least = 0;
        for (std::size_t i = 0; i < times.size(); ++i) {
            const std::int64_t off =
                times[i] - times[0] - static_cast<std::int64_t>(i) * kCadenceNs;
            least = std::min(least, off);
            packets.push_back(
                {1e-9 * static_cast<double>(times[i]), 1e-9 * static_cast<double>(off)});
        }
        for (Packet& packet : packets) packet.late_s -= 1e-9 * static_cast<double>(least);
        return packets;
    }

    std::atomic<bool> stopped_{false};
    std::vector<UdpCapture::Datagram> datagrams_;  // of the thread, until it has ended
    std::thread thread_;
};

#endif
