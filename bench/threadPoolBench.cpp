// The pool beside those of GLib, TBB and Asio: many empty jobs on some workers, one job on workers that sleep, and no
// job at all. Each is waited for in the way that its library has for it, or by a semaphore that the last job posts.

#include "support/processors.h"

#include <cUtil/threadPool.h>

#define ASIO_STANDALONE
#include <asio/post.hpp>
#include <asio/thread_pool.hpp>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <semaphore>
#include <vector>

namespace
{

// Counts jobs down and tells when the last has run.
class Countdown
{
public:
    void start(unsigned jobs) { left_ = jobs; }

    void step()
    {
        if (left_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            done_.release();
    }

    void wait() { done_.acquire(); }

private:
    std::atomic<unsigned> left_{0};
    std::binary_semaphore done_{0};
};

class Ours
{
public:
    explicit Ours(unsigned workers)
    {
        cu_ThreadPool_new(&pool_, workers, 1024, nullptr);
        cu_Runnable_new(
            &job_, [](void*, void*) -> uintptr_t { return 0; }, nullptr, nullptr);
    }
    ~Ours()
    {
        cu_ThreadPool_delete(&pool_);
        cu_Runnable_delete(&job_);
    }

    void run(unsigned jobs)
    {
        for (unsigned job = 0; job < jobs; ++job)
            cu_ThreadPool_insert(pool_, job_);
        cu_Runnable_wait(job_);
    }

private:
    cu_ThreadPool* pool_ = nullptr;
    cu_Runnable* job_ = nullptr;
};

class GLib
{
public:
    explicit GLib(unsigned workers)
        : pool_(g_thread_pool_new([](void* job, void*) { static_cast<Countdown*>(job)->step(); }, nullptr,
                                  static_cast<int>(workers), TRUE, nullptr))
    {
    }
    ~GLib() { g_thread_pool_free(pool_, FALSE, TRUE); }

    void run(unsigned jobs)
    {
        countdown_.start(jobs);
        for (unsigned job = 0; job < jobs; ++job)
            g_thread_pool_push(pool_, &countdown_, nullptr);
        countdown_.wait();
    }

private:
    Countdown countdown_;
    GThreadPool* pool_;
};

// The caller takes part in the work while it waits, except for a single job.
class Tbb
{
public:
    explicit Tbb(unsigned workers)
        : limit_(tbb::global_control::max_allowed_parallelism, workers + 1), arena_(static_cast<int>(workers) + 1, 1)
    {
    }

    void run(unsigned jobs)
    {
        if (jobs == 1) {
            countdown_.start(1);
            arena_.enqueue([this] { countdown_.step(); });
            countdown_.wait();
        } else {
            arena_.execute([&] {
                tbb::task_group group;
                for (unsigned job = 0; job < jobs; ++job)
                    group.run([] {});
                group.wait();
            });
        }
    }

private:
    tbb::global_control limit_;
    tbb::task_arena arena_;
    Countdown countdown_;
};

class Asio
{
public:
    explicit Asio(unsigned workers) : pool_(workers) {}
    ~Asio() { pool_.join(); }

    void run(unsigned jobs)
    {
        countdown_.start(jobs);
        for (unsigned job = 0; job < jobs; ++job)
            asio::post(pool_, [this] { countdown_.step(); });
        countdown_.wait();
    }

private:
    Countdown countdown_;
    asio::thread_pool pool_;
};

// Time for each job.
template <typename Pool>
void emptyJobs(benchmark::State& state)
{
    constexpr unsigned jobs = 200'000;
    for (auto _ : state) {
        bench::noteDistance(state);
        Pool pool(static_cast<unsigned>(state.range(0)));
        pool.run(1000);
        const int64_t start = bench::nanoSeconds();
        pool.run(jobs);
        state.SetIterationTime(static_cast<double>(bench::nanoSeconds() - start) * 1e-9 / jobs);
    }
}

// From its insertion until its end is known.
template <typename Pool>
void oneJob(benchmark::State& state)
{
    constexpr std::size_t rounds = 500;
    constexpr timespec pause = {0, 300'000}; // the workers fall asleep
    for (auto _ : state) {
        bench::noteDistance(state);
        Pool pool(static_cast<unsigned>(state.range(0)));
        std::vector<int64_t> times(rounds);
        for (auto& time : times) {
            nanosleep(&pause, nullptr);
            const int64_t start = bench::nanoSeconds();
            pool.run(1);
            time = bench::nanoSeconds() - start;
        }
        std::ranges::nth_element(times, times.begin() + rounds / 2);
        state.SetIterationTime(static_cast<double>(times[rounds / 2]) * 1e-9);
    }
}

// The processor time that workers take who have nothing to do for ten seconds.
template <typename Pool>
void tenIdleSeconds(benchmark::State& state)
{
    const auto processorSeconds = [] {
        timespec time = {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    for (auto _ : state) {
        Pool pool(static_cast<unsigned>(state.range(0)));
        pool.run(1000);
        const double before = processorSeconds();
        constexpr timespec pause = {10, 0};
        nanosleep(&pause, nullptr);
        state.SetIterationTime(processorSeconds() - before);
    }
}

void trials(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("workers")->UseManualTime()->Iterations(1)->Repetitions(9);
}

void once(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("workers")->UseManualTime()->Iterations(1)->Repetitions(1)->Arg(16);
}

void someWorkers(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Apply(trials)->Arg(1)->Arg(2)->Arg(4)->Arg(8);
}

BENCHMARK(emptyJobs<Ours>)->Name("emptyJobs/cUtil")->Apply(someWorkers);
BENCHMARK(emptyJobs<GLib>)->Name("emptyJobs/GThreadPool")->Apply(someWorkers);
BENCHMARK(emptyJobs<Tbb>)->Name("emptyJobs/TBB")->Apply(someWorkers);
BENCHMARK(emptyJobs<Asio>)->Name("emptyJobs/Asio")->Apply(someWorkers);
BENCHMARK(oneJob<Ours>)->Name("oneJob/cUtil")->Apply(trials)->Arg(2);
BENCHMARK(oneJob<GLib>)->Name("oneJob/GThreadPool")->Apply(trials)->Arg(2);
BENCHMARK(oneJob<Tbb>)->Name("oneJob/TBB")->Apply(trials)->Arg(2);
BENCHMARK(oneJob<Asio>)->Name("oneJob/Asio")->Apply(trials)->Arg(2);
BENCHMARK(tenIdleSeconds<Ours>)->Name("tenIdleSeconds/cUtil")->Apply(once);
BENCHMARK(tenIdleSeconds<GLib>)->Name("tenIdleSeconds/GThreadPool")->Apply(once);
BENCHMARK(tenIdleSeconds<Tbb>)->Name("tenIdleSeconds/TBB")->Apply(once);
BENCHMARK(tenIdleSeconds<Asio>)->Name("tenIdleSeconds/Asio")->Apply(once);

} // namespace
