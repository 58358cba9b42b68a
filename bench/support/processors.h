// Where a benchmark runs, and how far apart two processors are at the moment.
#pragma once

#include <benchmark/benchmark.h>

#include <sched.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace bench
{

inline cpu_set_t allowedProcessors()
{
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof(allowed), &allowed);
    return allowed;
}

inline unsigned processorCount()
{
    const cpu_set_t allowed = allowedProcessors();
    return static_cast<unsigned>(CPU_COUNT(&allowed));
}

/// Keeps the calling thread on one processor of those that it may use, counted from 0 and round again, for a scope.
/// What it starts meanwhile stays there too.
class OnProcessor
{
public:
    explicit OnProcessor(unsigned nth) : before_(allowedProcessors())
    {
        nth %= static_cast<unsigned>(CPU_COUNT(&before_));
        for (unsigned processor = 0; processor < CPU_SETSIZE; ++processor)
            if (CPU_ISSET(processor, &before_) && nth-- == 0) {
                cpu_set_t only;
                CPU_ZERO(&only);
                CPU_SET(processor, &only);
                sched_setaffinity(0, sizeof(only), &only);
                return;
            }
    }
    OnProcessor(const OnProcessor&) = delete;
    OnProcessor& operator=(const OnProcessor&) = delete;
    ~OnProcessor() { sched_setaffinity(0, sizeof(before_), &before_); }

private:
    cpu_set_t before_;
};

inline int64_t nanoSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// The time in nanoseconds that a cache line takes from the first processor to the second and back, 0 where there is
/// one processor only. Takes a few milliseconds.
inline double lineRoundTrip()
{
    if (processorCount() < 2)
        return 0;
    constexpr unsigned rounds = 2000;
    alignas(64) std::atomic<unsigned> line{0};
    std::thread other([&] {
        const OnProcessor second(1);
        for (unsigned turn = 1; turn <= rounds; ++turn) {
            while (line.load(std::memory_order_acquire) != 2 * turn - 1)
                ;
            line.store(2 * turn, std::memory_order_release);
        }
    });
    const OnProcessor first(0);
    int64_t start = 0;
    for (unsigned turn = 1; turn <= rounds; ++turn) {
        if (turn == rounds / 4) // the other thread has arrived by now
            start = nanoSeconds();
        line.store(2 * turn - 1, std::memory_order_release);
        while (line.load(std::memory_order_acquire) != 2 * turn)
            ;
    }
    const int64_t end = nanoSeconds();
    other.join();
    return static_cast<double>(end - start) / (rounds - rounds / 4);
}

/// For trials with two processors, which the distance between them decides: notes it, so that only trials of the same
/// distance are compared. Stands first in the benchmark.
inline void noteDistance(benchmark::State& state)
{
    state.counters["line_ns"] = lineRoundTrip();
}

} // namespace bench
