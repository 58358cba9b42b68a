#include "internal/threadPoolLayout.h"
#include "support/deadline.h"
#include "support/job.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/threadPool.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sys/resource.h>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using support::Job;
using support::runUntilStopped;
using Clock = std::chrono::steady_clock;

constexpr char file[] = "src/cUtil/threadPool";

using Names = std::multiset<std::string>;

// The names of the threads that the library has made.
Names threadNames()
{
    Names names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        if (std::getline(std::ifstream(task.path() / "comm"), name) && name.starts_with("cu-"))
            names.insert(name);
    }
    return names;
}

// A thread that was joined may be seen a moment longer.
bool threadsBecome(const Names& names)
{
    return support::comesTrue([&] { return threadNames() == names; });
}

Job::Function until(const std::atomic<bool>& over)
{
    return [&](const void*) { return uintptr_t{support::comesTrue([&] { return over.load(); })}; };
}

uintptr_t returnAtOnce(const void*)
{
    return 0;
}

using Pool = support::Made<cu_ThreadPool_new, cu_ThreadPool_delete>;

void insert(const Pool& pool, const Job& job)
{
    EXPECT_EQ(cu_ThreadPool_insert(pool, job.get()), 0U);
}

// Gives every worker a job that runs until something ends it.
void occupy(const Pool& pool, const Job& job)
{
    const int count = static_cast<int>(pool->workerCount);
    for (int one = 0; one < count; ++one)
        insert(pool, job);
    ASSERT_TRUE(support::comesTrue([&] { return job.begun() == count; }));
}

TEST(ThreadPool, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    support::sweep<cu_ThreadPool>(
        "cu_ThreadPool_new", [](auto** me, auto* allocator) { return cu_ThreadPool_new(me, 2, 4, allocator); },
        cu_ThreadPool_delete, {"sem_trywait", "pthread_mutex_trylock", "clock_gettime", "sysconf"},
        "pthread_mutex_unlock");
    support::WatchfulAllocator allocator;
    cu_ThreadPool* none = nullptr;
    const support::Failure failure =
        support::failureOf([&] { return cu_ThreadPool_new(&none, 2, 12, allocator.get()); });
    EXPECT_EQ(failure.function, "cu_PointerBuffer_new");
    support::expectCleanFailure("cu_ThreadPool_new", failure.code, none, allocator);
    EXPECT_TRUE(threadsBecome({}));

    const Pool pool(1U, 1U);
    const Job job(returnAtOnce);
    cu_ThreadPool* some = pool.get();
    const cu_TimeValue deadline = {};
    bool inserted = false;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, some, job.get(), &deadline, &inserted}), cu_ThreadPool_new,
                         cu_ThreadPool_insert, cu_ThreadPool_tryInsert, cu_ThreadPool_timedInsert);
    EXPECT_NULLS_REFUSED(file, std::tuple{&some}, cu_ThreadPool_delete);
    EXPECT_REFUSED(cu_ThreadPool_new(&none, 0, 1, nullptr), "cu_ThreadPool_new", file);
    EXPECT_REFUSED(cu_ThreadPool_new(&none, 1, 0, nullptr), "cu_ThreadPool_new", file);
    EXPECT_FALSE(job.isPending());
}

TEST(ThreadPool, everyJobRunsAsOftenAsItIsInserted)
{
    constexpr int producers = 4;
    const int each = support::scaled(20'000);
    const Pool pool(4U, 16U);
    const auto isRunning = [](const void* flag) {
        EXPECT_TRUE(cu_Thread_isRunning(flag));
        return 0;
    };
    const Job jobs[] = {Job(isRunning), Job(isRunning), Job(isRunning), Job(isRunning)};
    const auto produce = [&] {
        const cu_TimeValue deadline = support::fromNow(60'000);
        for (int round = 0; round < each; ++round)
            for (unsigned kind = 0; kind < std::size(jobs); ++kind) {
                cu_Runnable* job = jobs[kind].get();
                bool inserted = false;
                cu_ErrorCode code = kind % 2 == 0 ? cu_ThreadPool_tryInsert(pool, job, &inserted) : 0;
                if (!inserted && code == 0)
                    code = kind < 2 ? cu_ThreadPool_insert(pool, job)
                                    : cu_ThreadPool_timedInsert(pool, job, &deadline, &inserted);
                EXPECT_EQ(code, 0U);
            }
    };
    {
        std::vector<std::jthread> threads;
        for (int producer = 0; producer < producers; ++producer)
            threads.emplace_back(produce);
    }
    for (const auto& job : jobs) {
        EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
        EXPECT_EQ(job.begun(), producers * each);
    }
    EXPECT_TRUE(support::comesTrue([&] { return pool->idleCount == pool->workerCount; }));
}

TEST(ThreadPool, growsUnderLongJobsAndShrinksAfterThemOnceASecond)
{
    const auto start = Clock::now();
    const Pool pool(2U, 4U);
    EXPECT_TRUE(threadsBecome({"cu-pool-0", "cu-pool-1", "cu-pool-ctl"}));
    std::atomic<bool> over = false;
    const Job job(until(over));
    for (int one = 0; one < 3; ++one)
        insert(pool, job);
    const auto becomes = [&](uint32_t count, std::chrono::seconds earliest) {
        EXPECT_TRUE(support::comesTrue([&] { return pool->workerCount == count; })) << count;
        EXPECT_GE(Clock::now() - start, earliest) << count;
    };
    becomes(3, 1s);
    EXPECT_TRUE(support::comesTrue([&] { return job.begun() == 3; }));
    becomes(4, 2s);
    EXPECT_TRUE(threadsBecome({"cu-pool-0", "cu-pool-1", "cu-pool-2", "cu-pool-3", "cu-pool-ctl"}));
    over = true;
    becomes(3, 3s);
    becomes(2, 4s);
    EXPECT_TRUE(support::comesTrue([&] { return pool->idleCount == 2 && threadNames().size() == 3; }));
}

TEST(ThreadPool, aBusyWorkerRetiresAfterItsJob)
{
    const Pool pool(2U, 4U);
    std::atomic<int> toEnd = 0;
    std::atomic<cu_ThreadID> ended = {};
    const Job job([&](const void* flag) {
        while (cu_Thread_isRunning(flag)) {
            int left = toEnd;
            if (left > 0 && toEnd.compare_exchange_strong(left, left - 1)) {
                ended = cu_Thread_getCurrentThreadID();
                break;
            }
            std::this_thread::sleep_for(100us);
        }
        return 0;
    });
    occupy(pool, job);
    pool->retireRequest = 1;
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(pool->retireRequest, 1U);
    toEnd = 1;
    EXPECT_TRUE(support::comesTrue([&] { return pool->retireRequest == 0; }));
    EXPECT_EQ(cu_Semaphore_p(pool->retired), 0U);
    EXPECT_EQ(pool->retiringWorker, ended.load());
    EXPECT_EQ(pool->idleCount, 1U); // the controller subtracts the retired one
    const Job next(returnAtOnce);
    insert(pool, next);
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(next.begun(), 0);
    toEnd = 1;
    EXPECT_TRUE(support::comesTrue([&] { return next.begun() == 1; }));
}

// The controller waits for a worker over the next second; that second is not made up.
TEST(ThreadPool, changesAtMostOnceASecondHoweverLongAWorkerKeepsItWaiting)
{
    const auto start = Clock::now();
    const Pool pool(1U, 1U);
    const auto twoSecondsLater = Clock::now() + 2s;
    std::atomic<bool> over = false;
    const Job job(until(over));
    occupy(pool, job);
    pool->idleCount += 3; // as if workers had become busy after the controller looked
    EXPECT_TRUE(support::comesTrue([&] { return pool->retireRequest == 1; }));
    std::this_thread::sleep_until(twoSecondsLater + 10ms);
    EXPECT_EQ(pool->workerCount, 1U);
    over = true;
    EXPECT_TRUE(support::comesTrue([&] { return pool->workerCount == 0; }));
    EXPECT_TRUE(support::comesTrue([&] { return pool->retireRequest == 1; }));
    EXPECT_GE(Clock::now() - start, 3s);
}

TEST(ThreadPool, endsWhileTheControllerWaitsForAWorkerAndAllAreBusy)
{
    const Job job(runUntilStopped);
    Pool pool(2U, 2U);
    occupy(pool, job);
    pool->idleCount += 3; // as if workers had become busy after the controller looked
    EXPECT_TRUE(support::comesTrue([&] { return pool->retireRequest == 1; }));
    pool.end();
    EXPECT_FALSE(job.isPending());
}

// Some of the jobs are taken, some run and some wait when the end comes.
TEST(ThreadPool, givesJobsThatNobodyHasBegunBack)
{
    for (int round = 0; round < support::scaled(20); ++round) {
        const Job busy(runUntilStopped);
        const Job queued(returnAtOnce);
        Pool pool(3U, 64U);
        if (round % 2 == 0)
            occupy(pool, busy);
        for (int one = 0; one < 50 + round / 2; ++one)
            insert(pool, queued);
        EXPECT_TRUE(round % 2 != 0 || queued.isPending());
        pool.end();
        EXPECT_FALSE(queued.isPending());
        EXPECT_FALSE(busy.isPending());
        EXPECT_LE(queued.begun(), round % 2 == 0 ? 0 : 50 + round / 2);
    }
}

TEST(ThreadPool, aWorkerThatIsToStopGivesWhatItGetsBack)
{
    for (int round = 0; round < 10; ++round) {
        const Job job(returnAtOnce);
        Pool pool(1U, 1U);
        std::this_thread::sleep_for(1ms); // so that the worker waits for a job, most likely; either way holds
        EXPECT_EQ(cu_Thread_stop(pool->workers, false), 0U);
        insert(pool, job);
        pool.end();
        EXPECT_EQ(job.begun(), 0);
        EXPECT_FALSE(job.isPending());
    }
}

TEST(ThreadPool, refusedInsertionsLeaveTheCountAsItWas)
{
    const Pool pool(1U, 1U);
    std::atomic<bool> over = false;
    const Job busy(until(over));
    const Job queued(returnAtOnce);
    const Job job(returnAtOnce);
    occupy(pool, busy);
    insert(pool, queued);

    const cu_TimeValue deadline = support::fromNow(20);
    bool inserted = true;
    EXPECT_EQ(cu_ThreadPool_tryInsert(pool, job.get(), &inserted), 0U);
    EXPECT_FALSE(inserted);
    EXPECT_FALSE(job.isPending());
    inserted = true;
    EXPECT_EQ(cu_ThreadPool_timedInsert(pool, job.get(), &deadline, &inserted), 0U);
    EXPECT_FALSE(inserted);
    EXPECT_FALSE(job.isPending());
    EXPECT_TRUE(support::hasPassed(deadline));
    {
        const support::Injection injection("sem_wait", EINVAL);
        EXPECT_EQ(cu_ThreadPool_insert(pool, job.get()), cu_ERROR_SEM_LOCK_FAILED);
        EXPECT_NE(support::trace().find("cu_ThreadPool_insert  -  src/cUtil/threadPool:"), std::string::npos);
    }
    EXPECT_FALSE(job.isPending());

    const std::jthread blocked([&] { insert(pool, job); });
    EXPECT_TRUE(support::comesTrue([&] { return job.isPending(); }));
    EXPECT_EQ(job.begun(), 0);
    over = true;
    EXPECT_TRUE(support::comesTrue([&] { return job.begun() == 1; }));
}

TEST(ThreadPool, theDefaultPoolIsOneUntilItIsCleanedUp)
{
    {
        const support::Injection injection("pthread_create", EAGAIN, 5);
        EXPECT_EQ(cu_ThreadPool_default(), nullptr);
    }
    EXPECT_EQ(cu_ThreadPool_cleanup(), 0U);
    for (int life = 0; life < 2; ++life) {
        cu_ThreadPool* pools[4] = {};
        {
            std::vector<std::jthread> threads;
            for (auto& pool : pools)
                threads.emplace_back([&pool] { pool = cu_ThreadPool_default(); });
        }
        ASSERT_NE(pools[0], nullptr);
        for (const auto* pool : pools)
            EXPECT_EQ(pool, pools[0]);
        EXPECT_TRUE(support::comesTrue([&] { return threadNames().size() == 17; }));
        EXPECT_EQ(pools[0]->configuredIdle, 16U);
        {
            const support::Injection injection("pthread_mutex_lock", EINVAL);
            EXPECT_SYSTEM_FAILURE(cu_ThreadPool_cleanup(), cu_ERROR_MUTEX_LOCK_FAILED, EINVAL, "cu_ThreadPool_cleanup",
                                  file, "");
        }
        EXPECT_EQ(cu_ThreadPool_default(), pools[0]);
        EXPECT_EQ(cu_ThreadPool_cleanup(), 0U);
        EXPECT_TRUE(threadsBecome({}));
    }
}

TEST(ThreadPool, costsNextToNothingWhileIdle)
{
    if (support::scaled(100) != 100)
        GTEST_SKIP() << "what watches or emulates every step costs too much itself";
    constexpr int threads = 17;
    const Pool pool(threads - 1U, 32U);
    const auto switches = [] {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_nvcsw;
    };
    std::this_thread::sleep_for(50ms); // the workers get under way
    const auto start = Clock::now();
    const clock_t spentBefore = clock();
    const long switchesBefore = switches();
    std::this_thread::sleep_for(500ms);
    const std::chrono::duration<double> took = Clock::now() - start;
    EXPECT_LT(static_cast<double>(clock() - spentBefore) / CLOCKS_PER_SEC, took.count() / 4);
    // Each thread looks once within a poll period.
    EXPECT_LT(static_cast<double>(switches() - switchesBefore), 2 * threads * (took / 10ms));
}

} // namespace
