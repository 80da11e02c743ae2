#ifndef KESTAN_TESTS_SUPPORT_PACING_LOOP_H
#define KESTAN_TESTS_SUPPORT_PACING_LOOP_H

#include <utility>

#include "mux/muxer.h"

// An output or a sleep throws this to end the pacing loop.
struct EndOfRun {};

// The process's muxer and its pacing loop. One at a time.
class PacingLoop {
public:
    PacingLoop(std::uint32_t bitrate_kbps, output_fn output) {
        muxer_create(bitrate_kbps, output);
    }
    ~PacingLoop() { delete std::exchange(the_muxer, nullptr); }
    PacingLoop(const PacingLoop&) = delete;
    PacingLoop& operator=(const PacingLoop&) = delete;

    static void run(int watchdog_handle = 0) {
        constexpr std::uint32_t kick_interval_s = 5;
        try {
            muxer_run(watchdog_handle, kick_interval_s);
        } catch (const EndOfRun&) {
        }
    }
};

#endif
