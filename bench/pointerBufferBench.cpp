// The queue of pointers beside a lock-free one and one behind a mutex: a value put in and taken out again by one
// thread, and values that some threads hand to as many others.

#include "support/processors.h"

#include <cUtil/pointerBuffer.h>

#include <benchmark/benchmark.h>
#include <concurrentqueue/blockingconcurrentqueue.h>
#include <glib.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace
{

constexpr uint32_t capacity = 1024;

class Ours
{
public:
    Ours() { cu_PointerBuffer_new(&queue_, capacity, nullptr); }
    ~Ours() { cu_PointerBuffer_delete(&queue_); }

    void put(void* value) { cu_PointerBuffer_put(queue_, value); }

    void* get()
    {
        void* value = nullptr;
        cu_PointerBuffer_get(queue_, &value);
        return value;
    }

private:
    cu_PointerBuffer* queue_ = nullptr;
};

// Has no bound.
class Moodycamel
{
public:
    void put(void* value) { queue_.enqueue(value); }

    void* get()
    {
        void* value = nullptr;
        queue_.wait_dequeue(value);
        return value;
    }

private:
    moodycamel::BlockingConcurrentQueue<void*> queue_{capacity};
};

// Has no bound.
class GLib
{
public:
    ~GLib() { g_async_queue_unref(queue_); }
    void put(void* value) { g_async_queue_push(queue_, value); }
    void* get() { return g_async_queue_pop(queue_); }

private:
    GAsyncQueue* queue_ = g_async_queue_new();
};

void* pointer(uintptr_t number)
{
    return reinterpret_cast<void*>(number);
}

template <typename Queue>
void putAndGet(benchmark::State& state)
{
    Queue queue;
    uintptr_t number = 0;
    for (auto _ : state) {
        queue.put(pointer(++number));
        if (queue.get() != pointer(number))
            state.SkipWithError("another value");
    }
}

// Time for each value.
template <typename Queue>
void exchange(benchmark::State& state)
{
    const auto pairs = static_cast<uintptr_t>(state.range(0));
    const uintptr_t each = 400'000 / pairs;
    for (auto _ : state) {
        bench::noteDistance(state);
        Queue queue;
        std::vector<uintptr_t> sums(pairs * 8); // a cache line each
        std::vector<std::thread> threads;
        const int64_t start = bench::nanoSeconds();
        for (uintptr_t pair = 0; pair < pairs; ++pair) {
            threads.emplace_back([&] {
                for (uintptr_t number = 1; number <= each; ++number)
                    queue.put(pointer(number));
            });
            threads.emplace_back([&, pair] {
                uintptr_t sum = 0;
                for (uintptr_t count = 0; count < each; ++count)
                    sum += reinterpret_cast<uintptr_t>(queue.get());
                sums[pair * 8] = sum;
            });
        }
        for (auto& thread : threads)
            thread.join();
        state.SetIterationTime(static_cast<double>(bench::nanoSeconds() - start) * 1e-9 /
                               static_cast<double>(pairs * each));
        uintptr_t sum = 0;
        for (const uintptr_t part : sums)
            sum += part;
        if (sum != pairs * (each * (each + 1) / 2))
            state.SkipWithError("values are missing");
    }
}

void pairsOfThreads(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("pairs")->Arg(1)->Arg(2)->Arg(4)->Arg(8)->UseManualTime()->Iterations(1)->Repetitions(9);
}

BENCHMARK(putAndGet<Ours>)->Name("putAndGet/cUtil");
BENCHMARK(putAndGet<Moodycamel>)->Name("putAndGet/moodycamel");
BENCHMARK(putAndGet<GLib>)->Name("putAndGet/GAsyncQueue");
BENCHMARK(exchange<Ours>)->Name("exchange/cUtil")->Apply(pairsOfThreads);
BENCHMARK(exchange<Moodycamel>)->Name("exchange/moodycamel")->Apply(pairsOfThreads);
BENCHMARK(exchange<GLib>)->Name("exchange/GAsyncQueue")->Apply(pairsOfThreads);

} // namespace
