// The queue beside GLib's and the standard double-ended one: an element through an empty queue, a queue that keeps its
// length, one that is filled and emptied, and one that is used as a stack.

#include <cUtil/algorithm/queue.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdint>
#include <deque>

namespace
{

void* pointer(int64_t number)
{
    return reinterpret_cast<void*>(number);
}

void ignore(void*) {}

void* same(const void* element)
{
    return const_cast<void*>(element);
}

class Ours
{
public:
    Ours() { cu_Queue_new(&queue_, ignore, same, nullptr); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours() { cu_Queue_delete(&queue_); }

    void pushTail(void* element) { cu_Queue_pushTail(queue_, &element); }

    void* popHead()
    {
        void* element = nullptr;
        cu_Queue_popHead(queue_, &element);
        return element;
    }

    void* popTail()
    {
        void* element = nullptr;
        cu_Queue_popTail(queue_, &element);
        return element;
    }

private:
    cu_Queue* queue_ = nullptr;
};

class GLib
{
public:
    GLib() = default;
    GLib(const GLib&) = delete;
    GLib& operator=(const GLib&) = delete;
    ~GLib() { g_queue_free(queue_); }

    void pushTail(void* element) { g_queue_push_tail(queue_, element); }
    void* popHead() { return g_queue_pop_head(queue_); }
    void* popTail() { return g_queue_pop_tail(queue_); }

private:
    GQueue* queue_ = g_queue_new();
};

// Out of line, as a library is.
class Standard
{
public:
    [[gnu::noinline]] void pushTail(void* element) { queue_.push_back(element); }

    [[gnu::noinline]] void* popHead()
    {
        void* element = queue_.empty() ? nullptr : queue_.front();
        if (element != nullptr)
            queue_.pop_front();
        return element;
    }

    [[gnu::noinline]] void* popTail()
    {
        void* element = queue_.empty() ? nullptr : queue_.back();
        if (element != nullptr)
            queue_.pop_back();
        return element;
    }

private:
    std::deque<void*> queue_;
};

// range(0) elements are in the queue, one more passes through.
template <typename Queue>
void passThrough(benchmark::State& state)
{
    Queue queue;
    for (int64_t number = 1; number <= state.range(0); ++number)
        queue.pushTail(pointer(number));
    int64_t number = 0;
    for (auto _ : state) {
        queue.pushTail(pointer(++number));
        benchmark::DoNotOptimize(queue.popHead());
    }
}

template <typename Queue, void* (Queue::*pop)()>
void fillAndEmpty(benchmark::State& state)
{
    Queue queue;
    for (auto _ : state) {
        int64_t sum = 0;
        for (int64_t number = 1; number <= state.range(0); ++number)
            queue.pushTail(pointer(number));
        for (int64_t number = 1; number <= state.range(0); ++number)
            sum += reinterpret_cast<int64_t>((queue.*pop)());
        if (sum != state.range(0) * (state.range(0) + 1) / 2)
            state.SkipWithError("elements are missing");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Queue>
void compete(const std::string& who)
{
    benchmark::RegisterBenchmark(("pass/" + who).c_str(), passThrough<Queue>)->Arg(0)->Arg(1000)->Arg(1'000'000);
    benchmark::RegisterBenchmark(("queue/" + who).c_str(), fillAndEmpty<Queue, &Queue::popHead>)
        ->Arg(10)
        ->Arg(1000)
        ->Arg(1'000'000);
    benchmark::RegisterBenchmark(("stack/" + who).c_str(), fillAndEmpty<Queue, &Queue::popTail>)
        ->Arg(10)
        ->Arg(1000)
        ->Arg(1'000'000);
}

[[maybe_unused]] const bool registered = [] {
    compete<Ours>("cUtil");
    compete<GLib>("GQueue");
    compete<Standard>("std::deque");
    return true;
}();

} // namespace
