// The mutex beside the system's, with the same attributes and plain: lock and unlock uncontended, and contended by
// threads that do nothing else.

#include "support/crossProcess.h"

#include <cUtil/mutex.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <numeric>
#include <pthread.h>
#include <thread>
#include <vector>

namespace
{

class Ours
{
public:
    Ours() { cu_Mutex_new(&mutex_, false, nullptr); }
    ~Ours() { cu_Mutex_delete(&mutex_); }
    void lock() { cu_Mutex_lock(mutex_); }
    void unlock() { cu_Mutex_unlock(mutex_); }

private:
    cu_Mutex* mutex_ = nullptr;
};

template <int type, int protocol>
class Raw
{
public:
    Raw()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, type);
        pthread_mutexattr_setprotocol(&attributes, protocol);
        pthread_mutex_init(&mutex_, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~Raw() { pthread_mutex_destroy(&mutex_); }
    void lock() { pthread_mutex_lock(&mutex_); }
    void unlock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_;
};

using SameAttributes = Raw<PTHREAD_MUTEX_ERRORCHECK, PTHREAD_PRIO_INHERIT>;
using Plain = Raw<PTHREAD_MUTEX_DEFAULT, PTHREAD_PRIO_NONE>;

template <typename Mutex>
void uncontended(benchmark::State& state)
{
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}

template <typename Mutex>
void contended(benchmark::State& state)
{
    constexpr uint64_t locks = 500'000; // by all threads together
    const auto count = static_cast<unsigned>(state.range(0));
    for (auto _ : state) {
        state.counters["line_ns"] = bench::lineRoundTrip();
        Mutex mutex;
        uint64_t total = 0;
        bench::Clock::time_point start;
        double seconds = 0;
        std::atomic<unsigned> ready{0};
        std::vector<uint64_t> shares(count);
        std::vector<std::thread> threads;
        for (unsigned index = 0; index < count; ++index)
            threads.emplace_back([&, index] {
                bench::runOn(static_cast<int>(index % 2));
                if (++ready == count)
                    start = bench::Clock::now();
                while (ready != count)
                    std::this_thread::yield();
                uint64_t own = 0;
                for (bool isOver = false; !isOver; ++own) {
                    mutex.lock();
                    isOver = ++total >= locks;
                    if (total == locks)
                        seconds = bench::secondsSince(start);
                    mutex.unlock();
                }
                shares[index] = own;
            });
        for (std::thread& thread : threads)
            thread.join();
        state.SetIterationTime(seconds / locks);
        if (std::accumulate(shares.begin(), shares.end(), uint64_t{0}) != total)
            state.SkipWithError("two threads were inside at once");
        // 1: all threads got it equally often
        state.counters["least_share"] =
            static_cast<double>(count * *std::min_element(shares.begin(), shares.end())) / static_cast<double>(total);
    }
}

#define UNCONTENDED(Mutex, who) BENCHMARK(uncontended<Mutex>)->Name("lockUnlock/" who)
#define CONTENDED(Mutex, threads, who)                                                                                 \
    BENCHMARK(contended<Mutex>)                                                                                        \
        ->Name("threads" #threads "/" who)                                                                             \
        ->Arg(threads)                                                                                                 \
        ->UseManualTime()                                                                                              \
        ->Iterations(1)                                                                                                \
        ->Repetitions(9)
#define WORK(threads)                                                                                                  \
    CONTENDED(Ours, threads, "cUtil");                                                                                 \
    CONTENDED(SameAttributes, threads, "pthread inheriting");                                                          \
    CONTENDED(Plain, threads, "pthread plain")

UNCONTENDED(Ours, "cUtil");
UNCONTENDED(SameAttributes, "pthread inheriting");
UNCONTENDED(Plain, "pthread plain");
WORK(1);
WORK(2);
WORK(4);
WORK(8);

} // namespace

BENCHMARK_MAIN();
