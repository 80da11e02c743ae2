#include <condition_variable>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

// Beside a second thread, as in the daemon: the C library's mutexes are cheaper, by half,
// in a process that has never had one.
int main(int argc, char** argv) {
    std::mutex mutex;
    std::condition_variable ended_changed;
    bool ended = false;
    std::thread second([&] {
        std::unique_lock lock(mutex);
        ended_changed.wait(lock, [&] { return ended; });
    });

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();

    {
        const std::lock_guard lock(mutex);
        ended = true;
    }
    ended_changed.notify_one();
    second.join();
}
