// Round trips of a request and its answer, 64 bytes each, between two processes over an RPC channel, beside two pipes,
// a pair of stream sockets and two bare semaphores in shared memory; on two processors and on one.

#include "support/crossProcess.h"

#include <cUtil/rpcChannel.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <semaphore.h>
#include <sys/socket.h>
#include <vector>

namespace
{

struct Message {
    uint32_t number;
    char filling[60];
};

/// One side's end of a transport.
class Channel
{
public:
    static constexpr uint32_t size = 16384;

    Channel() : region_(bench::sharedMemory(size))
    {
        if (cu_RPCChannel_create(&ends_[0], region_, size, nullptr) != 0 ||
            cu_RPCChannel_open(&ends_[1], region_, nullptr) != 0)
            abort();
        for (int end = 0; end < 2; ++end) {
            cu_RPCChannel_getTxBuffer(ends_[end], &transmit_[end]);
            cu_RPCChannel_getRxBuffer(ends_[end], &receive_[end]);
        }
    }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel()
    {
        cu_RPCChannel_delete(&ends_[1]);
        cu_RPCChannel_delete(&ends_[0]);
        munmap(region_, size);
    }

    void send(int end, const Message& message)
    {
        memcpy(transmit_[end], &message, sizeof(message));
        cu_RPCChannel_signalTx(ends_[end]);
    }

    void receive(int end, Message& message)
    {
        cu_RPCChannel_waitRx(ends_[end]);
        memcpy(&message, receive_[end], sizeof(message));
    }

private:
    void* region_;
    cu_RPCChannel* ends_[2] = {};
    void* transmit_[2] = {};
    void* receive_[2] = {};
};

/// Two descriptors to write to and two to read from.
class Descriptors
{
public:
    void send(int end, const Message& message)
    {
        if (write(out_[end], &message, sizeof(message)) != sizeof(message))
            abort();
    }

    void receive(int end, Message& message)
    {
        if (read(in_[end], &message, sizeof(message)) != sizeof(message))
            abort();
    }

protected:
    int in_[2] = {};
    int out_[2] = {};
};

class Pipes : public Descriptors
{
public:
    Pipes()
    {
        for (int end = 0; end < 2; ++end) {
            int ends[2];
            if (pipe(ends) != 0)
                abort();
            in_[end] = ends[0];
            out_[1 - end] = ends[1];
        }
    }
    Pipes(const Pipes&) = delete;
    Pipes& operator=(const Pipes&) = delete;
    ~Pipes()
    {
        for (int end = 0; end < 2; ++end) {
            close(in_[end]);
            close(out_[end]);
        }
    }
};

class Sockets : public Descriptors
{
public:
    Sockets()
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, in_) != 0)
            abort();
        out_[0] = in_[0];
        out_[1] = in_[1];
    }
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;
    ~Sockets()
    {
        close(in_[0]);
        close(in_[1]);
    }
};

class BareSemaphores
{
public:
    BareSemaphores() : slots_(static_cast<Slot*>(bench::sharedMemory(2 * sizeof(Slot))))
    {
        for (int end = 0; end < 2; ++end)
            sem_init(&slots_[end].filled, 1, 0);
    }
    BareSemaphores(const BareSemaphores&) = delete;
    BareSemaphores& operator=(const BareSemaphores&) = delete;
    ~BareSemaphores() { munmap(slots_, 2 * sizeof(Slot)); }

    void send(int end, const Message& message)
    {
        slots_[end].message = message;
        sem_post(&slots_[end].filled);
    }

    void receive(int end, Message& message)
    {
        sem_wait(&slots_[1 - end].filled);
        message = slots_[1 - end].message;
    }

private:
    struct Slot {
        alignas(4096) sem_t filled;
        alignas(64) Message message;
    };
    Slot* slots_;
};

template <typename Transport, int processor>
void roundTrip(benchmark::State& state)
{
    constexpr uint32_t rounds = 5000;
    for (auto _ : state) {
        state.counters["line_ns"] = bench::lineRoundTrip();
        Transport transport;
        const bench::Child server(processor, [&] {
            Message message = {};
            for (;;) {
                transport.receive(1, message);
                transport.send(1, message);
            }
        });
        bench::runOn(0);
        Message message = {};
        std::vector<double> times;
        times.reserve(rounds);
        for (uint32_t round = 0; round < rounds; ++round) {
            message.number = round;
            const auto start = bench::Clock::now();
            transport.send(0, message);
            transport.receive(0, message);
            times.push_back(bench::secondsSince(start));
            if (message.number != round)
                state.SkipWithError("an answer to another request");
        }
        state.SetIterationTime(bench::percentile(times, 0.5));
        state.counters["p99_us"] = bench::percentile(times, 0.99) * 1e6;
    }
}

#define WORK(Transport, who)                                                                                           \
    BENCHMARK((roundTrip<Transport, 1>))                                                                               \
        ->Name("rpcTwoProcessors/" who)                                                                                \
        ->UseManualTime()                                                                                              \
        ->Iterations(1)                                                                                                \
        ->Repetitions(9);                                                                                              \
    BENCHMARK((roundTrip<Transport, 0>))->Name("rpcOneProcessor/" who)->UseManualTime()->Iterations(1)->Repetitions(9)

WORK(Channel, "cUtil");
WORK(Pipes, "pipe");
WORK(Sockets, "socket pair");
WORK(BareSemaphores, "bare semaphores");

} // namespace

BENCHMARK_MAIN();
