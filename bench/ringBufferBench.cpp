// The byte ring between two threads on two processors, beside Boost's lock-free byte queue and two minimal rings behind
// an opaque call: one whose words lie as they like best, and one whose words lie where the shared layout has them. The
// argument is the size of a record; what comes out is looked at.

#include "support/crossProcess.h"

#include <cUtil/ringBuffer.h>

#include <benchmark/benchmark.h>
#include <boost/lockfree/spsc_queue.hpp>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

namespace
{

constexpr uint32_t ringSize = 1U << 16;

class Ring
{
public:
    Ring() : region_(bench::sharedMemory(cu_RingBuffer_getRegionSize(ringSize)))
    {
        cu_RingBuffer_create(&ring_, region_, ringSize, false, false, nullptr);
    }
    ~Ring()
    {
        cu_RingBuffer_delete(&ring_);
        munmap(region_, cu_RingBuffer_getRegionSize(ringSize));
    }

    bool put(const char* record, uint32_t length)
    {
        bool written = false;
        cu_RingBuffer_put(ring_, record, length, &written);
        return written;
    }

    bool get(char* record, uint32_t length)
    {
        bool read = false;
        cu_RingBuffer_get(ring_, record, length, &read);
        return read;
    }

private:
    void* region_;
    cu_RingBuffer* ring_ = nullptr;
};

// Whole records only: push(n) and pop(n) would move what fits.
class BoostQueue
{
public:
    bool put(const char* record, uint32_t length)
    {
        return queue_.write_available() >= length && queue_.push(record, length) == length;
    }

    bool get(char* record, uint32_t length)
    {
        return queue_.read_available() >= length && queue_.pop(record, length) == length;
    }

private:
    boost::lockfree::spsc_queue<char, boost::lockfree::capacity<ringSize - 1>> queue_;
};

struct BestWords {
    alignas(128) std::atomic<uint32_t> write{0};
    alignas(128) uint32_t readCopy = 0;
    alignas(128) std::atomic<uint32_t> read{0};
    alignas(128) uint32_t writeCopy = 0;
};

struct SharedWords {
    uint32_t before[3] = {};
    std::atomic<uint32_t> read{0};
    std::atomic<uint32_t> write{0};
    uint32_t flags = 0;
    uint32_t writeCopy = 0;
    uint32_t between[15] = {};
    uint32_t readCopy = 0;
};

template <typename Words>
class MinimalRing
{
public:
    [[gnu::noinline]] bool put(const char* record, uint32_t length)
    {
        const uint32_t at = words_.write.load(std::memory_order_relaxed);
        if (length > ringSize - 1 - ((at - words_.readCopy) & mask)) {
            words_.readCopy = words_.read.load(std::memory_order_acquire);
            if (length > ringSize - 1 - ((at - words_.readCopy) & mask))
                return false;
        }
        const uint32_t first = std::min(length, ringSize - at);
        memcpy(data_ + at, record, first);
        if (first < length)
            memcpy(data_, record + first, length - first);
        words_.write.store((at + length) & mask, std::memory_order_release);
        return true;
    }

    [[gnu::noinline]] bool get(char* record, uint32_t length)
    {
        const uint32_t at = words_.read.load(std::memory_order_relaxed);
        if (length > ((words_.writeCopy - at) & mask)) {
            words_.writeCopy = words_.write.load(std::memory_order_acquire);
            if (length > ((words_.writeCopy - at) & mask))
                return false;
        }
        const uint32_t first = std::min(length, ringSize - at);
        memcpy(record, data_ + at, first);
        if (first < length)
            memcpy(record + first, data_, length - first);
        words_.read.store((at + length) & mask, std::memory_order_release);
        return true;
    }

private:
    static constexpr uint32_t mask = ringSize - 1;

    alignas(4096) Words words_;
    alignas(4096) char data_[ringSize];
};

/// Each ring in the same kind of memory.
template <typename Queue>
class Placed
{
public:
    Placed() : queue_(new (bench::sharedMemory(sizeof(Queue))) Queue) {}
    Placed(const Placed&) = delete;
    Placed& operator=(const Placed&) = delete;
    ~Placed()
    {
        queue_->~Queue();
        munmap(queue_, sizeof(Queue));
    }

    Queue* operator->() const { return queue_; }

private:
    Queue* queue_;
};

/// The length in a variable that the compiler knows nothing about.
uint32_t lengthOf(const benchmark::State& state)
{
    auto length = static_cast<uint32_t>(state.range(0));
    benchmark::DoNotOptimize(length);
    return length;
}

template <typename Queue>
void twoThreads(benchmark::State& state)
{
    const uint32_t length = lengthOf(state);
    constexpr uint32_t stretches = 25; // the median of their times: other programs disturb some of them
    const uint32_t records = 1'600'000 / (length + 24) * stretches;
    uint64_t sum = 0;
    for (auto _ : state) {
        state.counters["line_ns"] = bench::lineRoundTrip();
        const Placed<Queue> queue;
        std::thread producer([&] {
            bench::runOn(1);
            char record[1024] = {};
            for (uint32_t number = 0; number < records; ++number) {
                memcpy(record, &number, sizeof(number));
                while (!queue->put(record, length)) {
                }
            }
        });
        bench::runOn(0);
        char record[1024];
        std::vector<double> times;
        auto start = bench::Clock::now();
        for (uint32_t number = 0; number < records; ++number) {
            while (!queue->get(record, length)) {
            }
            benchmark::DoNotOptimize(record);
            uint32_t got = 0;
            memcpy(&got, record, sizeof(got));
            sum += got;
            if ((number + 1) % (records / stretches) == 0) {
                times.push_back(bench::secondsSince(start) / (records / stretches));
                start = bench::Clock::now();
            }
        }
        state.SetIterationTime(bench::percentile(times, 0.5));
        producer.join();
    }
    benchmark::DoNotOptimize(sum);
}

// One thread does both: what the instructions alone cost.
template <typename Queue>
void oneThread(benchmark::State& state)
{
    const uint32_t length = lengthOf(state);
    const Placed<Queue> queue;
    char record[1024] = {};
    for (auto _ : state) {
        queue->put(record, length);
        queue->get(record, length);
        benchmark::DoNotOptimize(record);
    }
}

#define RECORDS Arg(16)->Arg(64)->Arg(1024)
#define TWO(Queue, who)                                                                                                \
    BENCHMARK(twoThreads<Queue>)                                                                                       \
        ->Name("twoThreads/" who)                                                                                      \
        ->RECORDS->UseManualTime()                                                                                     \
        ->Iterations(1)                                                                                                \
        ->Repetitions(9)                                                                                               \
        ->Unit(benchmark::kNanosecond)
#define ONE(Queue, who) BENCHMARK(oneThread<Queue>)->Name("oneThread/" who)->RECORDS

TWO(Ring, "cUtil");
TWO(BoostQueue, "Boost spsc_queue");
TWO(MinimalRing<BestWords>, "minimal ring");
TWO(MinimalRing<SharedWords>, "minimal ring, same layout");
ONE(Ring, "cUtil");
ONE(BoostQueue, "Boost spsc_queue");
ONE(MinimalRing<BestWords>, "minimal ring");

} // namespace

BENCHMARK_MAIN();
