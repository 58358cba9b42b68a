// What trials between two processes need: a child that is gone at the end, processors to run on, and the class of the
// trial, which is the time that a cache line takes there and back at the moment.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench
{

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

inline void runOn(unsigned processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    sched_setaffinity(0, sizeof(set), &set);
}

/// Memory that both processes see.
inline void* sharedMemory(std::size_t size)
{
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        abort();
    return memory;
}

/// A child on a processor of its own choice that runs a function for ever, or until the end of the scope.
class Child
{
public:
    template <typename Function>
    Child(unsigned processor, Function function) : id_(fork())
    {
        if (id_ == 0) {
            runOn(processor);
            function();
            _exit(0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }

private:
    pid_t id_;
};

/// Nanoseconds of a cache line's way to the other processor and back, now.
inline double lineRoundTrip()
{
    constexpr unsigned rounds = 2000;
    auto* line = new (sharedMemory(4096)) std::atomic<unsigned>(0);
    double nanoSeconds = 0;
    {
        const Child child(1, [line] {
            for (unsigned round = 0;; ++round) {
                while (line->load(std::memory_order_acquire) != 2 * round + 1) {
                }
                line->store(2 * round + 2, std::memory_order_release);
            }
        });
        runOn(0);
        const auto trip = [line](unsigned round) {
            line->store(2 * round + 1, std::memory_order_release);
            while (line->load(std::memory_order_acquire) != 2 * round + 2) {
            }
        };
        for (unsigned round = 0; round < rounds / 2; ++round)
            trip(round);
        const auto start = Clock::now();
        for (unsigned round = rounds / 2; round < rounds; ++round)
            trip(round);
        nanoSeconds = secondsSince(start) * 1e9 / (rounds / 2);
    }
    munmap(line, 4096);
    return nanoSeconds;
}

inline double percentile(std::vector<double>& values, double share)
{
    const auto at = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
    return values[at];
}

} // namespace bench
