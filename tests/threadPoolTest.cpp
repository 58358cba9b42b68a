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
    cu_ThreadPool* none = nullptr;
    EXPECT_REFUSED(cu_ThreadPool_new(&none, 2, 12, nullptr), "cu_PointerBuffer_new", "src/cUtil/pointerBuffer");
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
    constexpr unsigned producers = 4;
    const int each = support::scaled(80'000);
    const Pool pool(4U, 16U);
    const Job job([](const void* flag) {
        EXPECT_TRUE(cu_Thread_isRunning(flag));
        return 0;
    });
    const auto produce = [&] {
        const cu_TimeValue deadline = support::fromNow(60'000);
        for (int round = 0; round < each; ++round) {
            bool inserted = false;
            cu_ErrorCode code = round % 2 == 0 ? cu_ThreadPool_tryInsert(pool, job.get(), &inserted) : 0;
            if (!inserted && code == 0)
                code = round % 4 < 2 ? cu_ThreadPool_insert(pool, job.get())
                                     : cu_ThreadPool_timedInsert(pool, job.get(), &deadline, &inserted);
            EXPECT_EQ(code, 0U);
        }
    };
    for (std::vector<std::jthread> threads; threads.size() < producers;)
        threads.emplace_back(produce);
    EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
    EXPECT_EQ(job.begun(), int{producers} * each);
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
    std::this_thread::sleep_until(twoSecondsLater + 500ms); // however late the controller began
    EXPECT_EQ(pool->workerCount, 1U);                       // it retires after its job
    over = true;
    EXPECT_TRUE(support::comesTrue([&] { return pool->workerCount == 0; }));
    EXPECT_TRUE(support::comesTrue([&] { return pool->retireRequest == 1; }));
    EXPECT_GE(Clock::now() - start, 3s);
    // The end does not wait for a worker that nobody is.
}

TEST(ThreadPool, givesJobsThatNobodyHasBegunBack)
{
    const Job busy(runUntilStopped);
    const Job queued(returnAtOnce);
    Pool pool(3U, 64U);
    occupy(pool, busy);
    for (int one = 0; one < 50; ++one)
        insert(pool, queued);
    EXPECT_TRUE(queued.isPending());
    pool.end();
    EXPECT_FALSE(queued.isPending());
    EXPECT_FALSE(busy.isPending());
    EXPECT_EQ(queued.begun(), 0);
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
    const Job busy(runUntilStopped);
    const Job job(returnAtOnce);
    const Pool pool(1U, 1U);
    occupy(pool, busy);
    insert(pool, busy);

    const cu_TimeValue deadline = support::fromNow(20);
    for (const bool isTimed : {false, true}) {
        bool inserted = true;
        EXPECT_EQ(isTimed ? cu_ThreadPool_timedInsert(pool, job.get(), &deadline, &inserted)
                          : cu_ThreadPool_tryInsert(pool, job.get(), &inserted),
                  0U);
        EXPECT_FALSE(inserted);
        EXPECT_FALSE(job.isPending());
    }
    EXPECT_TRUE(support::hasPassed(deadline));
    {
        const support::Injection injection("sem_wait", EINVAL);
        EXPECT_EQ(cu_ThreadPool_insert(pool, job.get()), cu_ERROR_SEM_LOCK_FAILED);
        EXPECT_NE(support::trace().find("cu_ThreadPool_insert  -  src/cUtil/threadPool:"), std::string::npos);
    }
    EXPECT_FALSE(job.isPending());
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
        for (std::vector<std::jthread> threads; auto& pool : pools)
            threads.emplace_back([&pool] { pool = cu_ThreadPool_default(); });
        ASSERT_NE(pools[0], nullptr);
        EXPECT_EQ(std::set(std::begin(pools), std::end(pools)).size(), 1U);
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
    const Pool pool(16U, 32U);
    std::this_thread::sleep_for(50ms); // the workers get under way
    rusage before = {};
    rusage after = {};
    const auto start = Clock::now();
    const clock_t spentBefore = clock();
    getrusage(RUSAGE_SELF, &before);
    std::this_thread::sleep_for(500ms);
    const std::chrono::duration<double> took = Clock::now() - start;
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(static_cast<double>(clock() - spentBefore) / CLOCKS_PER_SEC, took.count() / 4);
    // Each of the 17 threads looks once within a poll period.
    EXPECT_LT(static_cast<double>(after.ru_nvcsw - before.ru_nvcsw), 2 * 17 * (took / 10ms));
}

} // namespace
