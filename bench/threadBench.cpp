// Work handed to waiting threads and collected from them beside making and joining a std::thread for it, and the count
// of a runnable's pending executions beside one behind a mutex.

#include "support/processors.h"

#include <cUtil/runnable.h>
#include <cUtil/thread.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace
{

uintptr_t runOnce(void*, void* count)
{
    return ++*static_cast<uintptr_t*>(count);
}

// Keeps everything on one processor, or leaves it where the system puts it.
class Place
{
public:
    explicit Place(benchmark::State& state)
    {
        if (state.range(1) == 1)
            one_.emplace(0);
        else
            bench::noteDistance(state);
    }

private:
    std::optional<bench::OnProcessor> one_;
};

// Starts one piece of work in each of some threads, stops them and collects the results.
void reused(benchmark::State& state)
{
    const Place place(state);
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<uintptr_t> counts(count * 8); // a cache line each
    std::vector<cu_Runnable*> runnables(count);
    std::vector<cu_Thread*> threads(count);
    for (std::size_t at = 0; at < count; ++at) {
        cu_Runnable_new(&runnables[at], runOnce, &counts[at * 8], nullptr);
        cu_Thread_new(&threads[at], nullptr);
    }
    uintptr_t cycles = 0;
    for (auto _ : state) {
        ++cycles;
        for (std::size_t at = 0; at < count; ++at)
            cu_Thread_start(threads[at], runnables[at]);
        for (std::size_t at = 0; at < count; ++at) {
            uintptr_t result = 0;
            cu_Thread_stop(threads[at], false);
            cu_Thread_join(threads[at], &result);
            if (result != cycles)
                state.SkipWithError("an execution is missing");
        }
    }
    for (std::size_t at = 0; at < count; ++at) {
        cu_Thread_delete(&threads[at]);
        cu_Runnable_delete(&runnables[at]);
    }
}

void madeAnew(benchmark::State& state)
{
    const Place place(state);
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<uintptr_t> counts(count * 8);
    std::vector<std::thread> threads(count);
    uintptr_t cycles = 0;
    for (auto _ : state) {
        ++cycles;
        for (std::size_t at = 0; at < count; ++at)
            threads[at] = std::thread(runOnce, nullptr, &counts[at * 8]);
        for (std::size_t at = 0; at < count; ++at) {
            threads[at].join();
            if (counts[at * 8] != cycles)
                state.SkipWithError("an execution is missing");
        }
    }
}

// Announces an execution and ends it.
void pendingOfRunnable(benchmark::State& state)
{
    static uintptr_t unused = 0;
    static cu_Runnable* const runnable = [] {
        cu_Runnable* made = nullptr;
        cu_Runnable_new(&made, runOnce, &unused, nullptr);
        return made;
    }();
    for (auto _ : state) {
        cu_Runnable_lock(runnable);
        cu_Runnable_unlock(runnable);
    }
}

void pendingBehindMutex(benchmark::State& state)
{
    static std::mutex mutex;
    static uint32_t pending = 0;
    for (auto _ : state) {
        for (const uint32_t step : {1U, ~0U}) {
            const std::lock_guard lock(mutex);
            benchmark::DoNotOptimize(pending += step);
        }
    }
}

void placesAndThreads(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"threads", "processors"})->ArgsProduct({{1, 2, 4, 8}, {1, 2}})->UseRealTime();
}

BENCHMARK(reused)->Name("runInThread/cUtil")->Apply(placesAndThreads);
BENCHMARK(madeAnew)->Name("runInThread/std::thread")->Apply(placesAndThreads);
BENCHMARK(pendingOfRunnable)->Name("announceAndEnd/cUtil")->ThreadRange(1, 8)->UseRealTime();
BENCHMARK(pendingBehindMutex)->Name("announceAndEnd/std::mutex")->ThreadRange(1, 8)->UseRealTime();

} // namespace
