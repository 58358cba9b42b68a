// The FIFO between two processes, beside the message queues of Boost.Interprocess and POSIX and a pipe, with entries of
// 64 bytes: messages one way, and round trips on two processors and on one.

#include "support/crossProcess.h"

#include <cUtil/fifo.h>

#include <benchmark/benchmark.h>
#include <boost/interprocess/ipc/message_queue.hpp>

#include <cstdint>
#include <cstring>
#include <mqueue.h>
#include <string>

namespace
{

constexpr unsigned depth = 1024;
constexpr unsigned posixDepth = 10; // what the system allows everybody

struct Message {
    uint32_t number;
    char filling[60];
};

class Fifo
{
public:
    Fifo() : block_(bench::sharedMemory(cu_Fifo_getBlockSize(depth, sizeof(Message))))
    {
        const Message initial = {};
        cu_Fifo_init(block_, depth, sizeof(Message), &initial);
    }
    ~Fifo() { munmap(block_, cu_Fifo_getBlockSize(depth, sizeof(Message))); }

    void send(const Message& message)
    {
        void* entry = nullptr;
        cu_Fifo_put(block_, &entry);
        memcpy(entry, &message, sizeof(message));
        cu_Fifo_putCommit(block_);
    }

    void receive(Message& message)
    {
        void* entry = nullptr;
        cu_Fifo_get(block_, &entry);
        memcpy(&message, entry, sizeof(message));
        cu_Fifo_getCommit(block_);
    }

private:
    void* block_;
};

std::string freshName()
{
    static unsigned count = 0;
    return "koCUtilBench." + std::to_string(getpid()) + "." + std::to_string(++count);
}

class BoostQueue
{
public:
    BoostQueue() : name_(freshName()), queue_(boost::interprocess::create_only, name_.c_str(), depth, sizeof(Message))
    {
    }
    ~BoostQueue() { boost::interprocess::message_queue::remove(name_.c_str()); }

    void send(const Message& message) { queue_.send(&message, sizeof(message), 0); }

    void receive(Message& message)
    {
        boost::interprocess::message_queue::size_type size = 0;
        unsigned priority = 0;
        queue_.receive(&message, sizeof(message), size, priority);
    }

private:
    std::string name_;
    boost::interprocess::message_queue queue_;
};

class PosixQueue
{
public:
    PosixQueue()
    {
        const std::string name = "/" + freshName();
        mq_attr attributes = {};
        attributes.mq_maxmsg = posixDepth;
        attributes.mq_msgsize = sizeof(Message);
        queue_ = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
        mq_unlink(name.c_str());
    }
    ~PosixQueue() { mq_close(queue_); }

    void send(const Message& message) { mq_send(queue_, reinterpret_cast<const char*>(&message), sizeof(message), 0); }

    void receive(Message& message) { mq_receive(queue_, reinterpret_cast<char*>(&message), sizeof(message), nullptr); }

private:
    mqd_t queue_;
};

class Pipe
{
public:
    Pipe()
    {
        if (pipe(ends_) != 0)
            abort();
    }
    ~Pipe()
    {
        close(ends_[0]);
        close(ends_[1]);
    }

    void send(const Message& message)
    {
        if (write(ends_[1], &message, sizeof(message)) != sizeof(message))
            abort();
    }

    void receive(Message& message)
    {
        if (read(ends_[0], &message, sizeof(message)) != sizeof(message))
            abort();
    }

private:
    int ends_[2];
};

template <typename Queue>
void oneWay(benchmark::State& state)
{
    constexpr uint32_t messages = 200'000;
    uint64_t sum = 0;
    for (auto _ : state) {
        state.counters["line_ns"] = bench::lineRoundTrip();
        Queue queue;
        const bench::Child sender(1, [&] {
            Message message = {};
            for (message.number = 0;; ++message.number)
                queue.send(message);
        });
        bench::runOn(0);
        Message message = {};
        for (uint32_t warm = 0; warm < 1000; ++warm)
            queue.receive(message);
        const auto start = bench::Clock::now();
        for (uint32_t received = 0; received < messages; ++received) {
            queue.receive(message);
            sum += message.number;
        }
        state.SetIterationTime(bench::secondsSince(start) / messages);
    }
    benchmark::DoNotOptimize(sum);
}

template <typename Queue, unsigned processor>
void roundTrip(benchmark::State& state)
{
    constexpr uint32_t rounds = 5000;
    for (auto _ : state) {
        state.counters["line_ns"] = bench::lineRoundTrip();
        Queue there;
        Queue back;
        const bench::Child echo(processor, [&] {
            Message message = {};
            for (;;) {
                there.receive(message);
                back.send(message);
            }
        });
        bench::runOn(0);
        Message message = {};
        std::vector<double> times;
        times.reserve(rounds);
        for (uint32_t round = 0; round < rounds; ++round) {
            message.number = round;
            const auto start = bench::Clock::now();
            there.send(message);
            back.receive(message);
            times.push_back(bench::secondsSince(start));
            if (message.number != round)
                state.SkipWithError("an answer to another question");
        }
        state.SetIterationTime(bench::percentile(times, 0.5));
        state.counters["p99_us"] = bench::percentile(times, 0.99) * 1e6;
    }
}

#define WORK(function, work) BENCHMARK(function)->Name(work)->UseManualTime()->Iterations(1)->Repetitions(9)

WORK(oneWay<Fifo>, "oneWay/cUtil");
WORK(oneWay<BoostQueue>, "oneWay/Boost.Interprocess");
WORK(oneWay<PosixQueue>, "oneWay/POSIX mq");
WORK(oneWay<Pipe>, "oneWay/pipe");
WORK((roundTrip<Fifo, 1>), "roundTripTwoProcessors/cUtil");
WORK((roundTrip<BoostQueue, 1>), "roundTripTwoProcessors/Boost.Interprocess");
WORK((roundTrip<PosixQueue, 1>), "roundTripTwoProcessors/POSIX mq");
WORK((roundTrip<Pipe, 1>), "roundTripTwoProcessors/pipe");
WORK((roundTrip<Fifo, 0>), "roundTripOneProcessor/cUtil");
WORK((roundTrip<BoostQueue, 0>), "roundTripOneProcessor/Boost.Interprocess");
WORK((roundTrip<PosixQueue, 0>), "roundTripOneProcessor/POSIX mq");
WORK((roundTrip<Pipe, 0>), "roundTripOneProcessor/pipe");

} // namespace

BENCHMARK_MAIN();
