// Reading the clock through the library beside the bare system call.
#include <cUtil/time/time.h>

#include <benchmark/benchmark.h>

namespace
{

void readThroughLibrary(benchmark::State& state)
{
    const auto clockId = static_cast<int32_t>(state.range(0));
    cu_TimeValue time = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(cu_getTime(&time, clockId));
        benchmark::DoNotOptimize(time);
    }
}

void readBare(benchmark::State& state)
{
    const auto clockId = static_cast<clockid_t>(state.range(0));
    timespec time = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(clock_gettime(clockId, &time));
        benchmark::DoNotOptimize(time);
    }
}

} // namespace

BENCHMARK(readThroughLibrary)->Name("getTime/cUtil")->ArgName("clock")->Arg(CLOCK_REALTIME)->Arg(CLOCK_MONOTONIC);
BENCHMARK(readBare)->Name("getTime/clock_gettime")->ArgName("clock")->Arg(CLOCK_REALTIME)->Arg(CLOCK_MONOTONIC);
