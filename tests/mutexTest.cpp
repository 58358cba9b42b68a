#include "support/deadline.h"
#include "support/process.h"
#include "support/record.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/atomicLock.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <pthread.h>
#include <sched.h>
#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/mutex";

template <typename Function>
void elsewhere(Function function)
{
    std::thread(function).join();
}

class Mutex : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(cu_Mutex_new(&checking, false, nullptr), 0U);
        ASSERT_EQ(cu_Mutex_new(&recursive, true, nullptr), 0U);
    }

    void TearDown() override
    {
        EXPECT_EQ(cu_Mutex_delete(&checking), 0U);
        EXPECT_EQ(cu_Mutex_delete(&recursive), 0U);
        EXPECT_EQ(checking, nullptr);
    }

    cu_Mutex* checking = nullptr;
    cu_Mutex* recursive = nullptr;
    const cu_TimeValue past = {1, 0};
};

TEST_F(Mutex, constructorsLeaveNothingBehind)
{
    support::sweep<cu_Mutex>(
        "cu_Mutex_new", [](auto** me, auto* allocator) { return cu_Mutex_new(me, false, allocator); }, cu_Mutex_delete);
}

TEST_F(Mutex, badArgumentsAreRefused)
{
    bool locked = true;
    cu_Mutex* none = nullptr;
    cu_Mutex* const before = checking;
    EXPECT_REFUSED(cu_Mutex_new(nullptr, false, nullptr), "cu_Mutex_new", file);
    EXPECT_REFUSED(cu_Mutex_new(&checking, false, nullptr), "cu_Mutex_new", file);
    EXPECT_EQ(checking, before);
    EXPECT_REFUSED(cu_Mutex_delete(nullptr), "cu_Mutex_delete", file);
    EXPECT_REFUSED(cu_Mutex_delete(&none), "cu_Mutex_delete", file);
    EXPECT_REFUSED(cu_Mutex_lock(nullptr), "cu_Mutex_lock", file);
    EXPECT_REFUSED(cu_Mutex_tryLock(nullptr, &locked), "cu_Mutex_tryLock", file);
    EXPECT_REFUSED(cu_Mutex_tryLock(checking, nullptr), "cu_Mutex_tryLock", file);
    EXPECT_REFUSED(cu_Mutex_timedLock(nullptr, &past, &locked), "cu_Mutex_timedLock", file);
    EXPECT_REFUSED(cu_Mutex_timedLock(checking, nullptr, &locked), "cu_Mutex_timedLock", file);
    EXPECT_REFUSED(cu_Mutex_timedLock(checking, &past, nullptr), "cu_Mutex_timedLock", file);
    EXPECT_REFUSED(cu_Mutex_unlock(nullptr), "cu_Mutex_unlock", file);
}

TEST_F(Mutex, theOwnerOfACheckingMutexIsToldThatItHasIt)
{
    bool locked = true;
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    EXPECT_SYSTEM_FAILURE(cu_Mutex_lock(checking), cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK, "cu_Mutex_lock", file, "");
    EXPECT_EQ(cu_Mutex_tryLock(checking, &locked), 0U);
    EXPECT_FALSE(locked);
    const cu_TimeValue deadline = support::fromNow(60'000);
    EXPECT_SYSTEM_FAILURE(cu_Mutex_timedLock(checking, &deadline, &locked), cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK,
                          "cu_Mutex_timedLock", file, "");
    EXPECT_TRUE(locked);
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
}

TEST_F(Mutex, onlyTheOwnerUnlocksAndALockedOneStays)
{
    if (support::mutexesAreWatched)
        GTEST_SKIP() << "a mutex is given back by a thread that does not hold it";
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    EXPECT_SYSTEM_FAILURE(cu_Mutex_delete(&checking), cu_ERROR_MUTEX_FREE_FAILED, EBUSY, "cu_Mutex_delete", file, "");
    elsewhere([&] {
        EXPECT_SYSTEM_FAILURE(cu_Mutex_unlock(checking), cu_ERROR_MUTEX_UNLOCK_FAILED, EPERM, "cu_Mutex_unlock", file,
                              "");
    });
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    EXPECT_SYSTEM_FAILURE(cu_Mutex_unlock(checking), cu_ERROR_MUTEX_UNLOCK_FAILED, EPERM, "cu_Mutex_unlock", file, "");
}

TEST_F(Mutex, aRecursiveOneIsFreeAfterAsManyUnlocks)
{
    bool locked = false;
    ASSERT_EQ(cu_Mutex_lock(recursive), 0U);
    EXPECT_EQ(cu_Mutex_tryLock(recursive, &locked), 0U);
    EXPECT_TRUE(locked);
    EXPECT_EQ(cu_Mutex_timedLock(recursive, &past, &locked), 0U);
    EXPECT_TRUE(locked);
    for (int held = 3; held > 0; --held) {
        elsewhere([&] {
            bool here = true;
            EXPECT_EQ(cu_Mutex_tryLock(recursive, &here), 0U);
            EXPECT_FALSE(here);
        });
        EXPECT_EQ(cu_Mutex_unlock(recursive), 0U);
    }
    elsewhere([&] {
        bool here = false;
        EXPECT_EQ(cu_Mutex_tryLock(recursive, &here), 0U);
        EXPECT_TRUE(here);
        EXPECT_EQ(cu_Mutex_unlock(recursive), 0U);
    });
}

TEST_F(Mutex, aBusyOneIsToldByTheFlagAtTheDeadlineAndNotBefore)
{
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        const support::SignalStorm storm;
        bool locked = true;
        EXPECT_EQ(cu_Mutex_timedLock(checking, &past, &locked), 0U);
        EXPECT_FALSE(locked);
        locked = true;
        const cu_TimeValue deadline = support::fromNow(50);
        EXPECT_EQ(cu_Mutex_timedLock(checking, &deadline, &locked), 0U);
        EXPECT_FALSE(locked);
        EXPECT_TRUE(support::hasPassed(deadline));
        const cu_TimeValue invalid = {0, 1'000'000'000};
        EXPECT_SYSTEM_FAILURE(cu_Mutex_timedLock(checking, &invalid, &locked), cu_ERROR_MUTEX_LOCK_FAILED, EINVAL,
                              "cu_Mutex_timedLock", file, "");
        EXPECT_TRUE(locked);
    });
    std::thread waiter([&] {
        const support::SignalStorm storm;
        const cu_TimeValue later = support::fromNow(60'000);
        bool locked = false;
        EXPECT_EQ(cu_Mutex_timedLock(checking, &later, &locked), 0U);
        EXPECT_TRUE(locked);
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // so that it sleeps, most likely; either way holds
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    waiter.join();
}

TEST_F(Mutex, eachResultOfTheSystemHasItsMeaning)
{
    const auto lock = [&](bool*) { return cu_Mutex_lock(checking); };
    const auto tryLock = [&](bool* locked) { return cu_Mutex_tryLock(checking, locked); };
    const auto timedLock = [&](bool* locked) { return cu_Mutex_timedLock(checking, &past, locked); };
    struct Case {
        const char* call;
        const char* failing;
        int result;
        std::function<cu_ErrorCode(bool*)> function;
        cu_ErrorCode code;
        bool locked;
    };
    const Case cases[] = {
        {"cu_Mutex_tryLock", "pthread_mutex_trylock", EBUSY, tryLock, 0, false},
        {"cu_Mutex_tryLock", "pthread_mutex_trylock", EDEADLK, tryLock, 0, false},
        {"cu_Mutex_tryLock", "pthread_mutex_trylock", EAGAIN, tryLock, cu_ERROR_MUTEX_LOCK_FAILED, true},
        {"cu_Mutex_tryLock", "pthread_mutex_trylock", ETIMEDOUT, tryLock, cu_ERROR_MUTEX_LOCK_FAILED, true},
        // Whatever a first look says, the call that waits decides.
        {"cu_Mutex_lock", "pthread_mutex_trylock", EINVAL, lock, 0, true},
        {"cu_Mutex_lock", "pthread_mutex_trylock", EBUSY, lock, 0, true},
        {"cu_Mutex_timedLock", "pthread_mutex_trylock", EINVAL, timedLock, 0, true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(std::string(one.call) + ", " + one.failing + " gives " + std::to_string(one.result));
        bool locked = true;
        support::Failure failure;
        {
            const support::Injection injection(one.failing, one.result);
            failure = support::failureOf([&] { return one.function(&locked); });
            EXPECT_NE(injection.fired(), nullptr);
        }
        EXPECT_EQ(failure.code, one.code);
        EXPECT_EQ(locked, one.locked);
        if (one.code != 0) {
            EXPECT_EQ(failure, (support::Failure{one.code, one.call, file, "", one.result}));
        } else if (one.locked) {
            EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
        }
    }

    // The calls that wait are reached by another thread's lock.
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        for (const int result : {EBUSY, ETIMEDOUT}) {
            bool locked = true;
            const support::Injection injection("pthread_mutex_timedlock", result);
            EXPECT_EQ(cu_Mutex_timedLock(checking, &past, &locked), 0U);
            EXPECT_FALSE(locked);
            EXPECT_NE(injection.fired(), nullptr);
        }
        const support::Injection injection("pthread_mutex_lock", EBUSY);
        EXPECT_SYSTEM_FAILURE(cu_Mutex_lock(checking), cu_ERROR_MUTEX_LOCK_FAILED, EBUSY, "cu_Mutex_lock", file, "");
    });
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
}

TEST_F(Mutex, threadsExcludeEachOther)
{
    constexpr unsigned threadCount = 4;
    constexpr unsigned rounds = 20'000;
    const cu_TimeValue later = support::fromNow(60'000);
    unsigned count = 0;
    std::vector<std::thread> threads;
    for (unsigned index = 0; index < threadCount; ++index)
        threads.emplace_back([&, index] {
            bool locked = false;
            for (unsigned round = 0; round < rounds; ++round) {
                const bool isTimed = index % 2 != 0;
                ASSERT_EQ(isTimed ? cu_Mutex_timedLock(checking, &later, &locked) : cu_Mutex_lock(checking), 0U);
                ASSERT_EQ(locked, isTimed);
                ++count;
                ASSERT_EQ(cu_Mutex_unlock(checking), 0U);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, threadCount * rounds);
}

// --- Priority inheritance -------------------------------------------------------------------------------------------

/// Makes the calling thread a real-time one on the first processor that it may use, until the end of the scope.
class RealTime
{
public:
    explicit RealTime(int priority)
    {
        pthread_getschedparam(pthread_self(), &policy_, &parameter_);
        pthread_getaffinity_np(pthread_self(), sizeof(processors_), &processors_);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (std::size_t processor = 0; CPU_COUNT(&one) == 0; ++processor)
            if (CPU_ISSET(processor, &processors_))
                CPU_SET(processor, &one);
        const sched_param wanted = {priority};
        error = pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
        if (error == 0)
            error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &wanted);
    }
    RealTime(const RealTime&) = delete;
    RealTime& operator=(const RealTime&) = delete;
    ~RealTime()
    {
        pthread_setschedparam(pthread_self(), policy_, &parameter_);
        pthread_setaffinity_np(pthread_self(), sizeof(processors_), &processors_);
    }

    int error = 0;

private:
    int policy_ = 0;
    sched_param parameter_ = {};
    cpu_set_t processors_;
};

/// On one processor a low thread holds the mutex, a middle one burns the processor for so long, a high one wants the
/// mutex. Says whether the high one got it while the middle one was still burning. Only time on the processor counts:
/// whoever has taken that away from all three has done nothing to their order.
template <typename Lock, typename Unlock>
bool highOvertakesMiddle(std::chrono::milliseconds burning, Lock lock, Unlock unlock)
{
    std::atomic<bool> lowHolds{false};
    std::atomic<bool> middleBurns{false};
    std::atomic<bool> highWants{false};
    std::atomic<bool> highHas{false};
    std::atomic<bool> hasOvertaken{false};
    const auto burnUntil = [](const std::atomic<bool>& flag, std::chrono::milliseconds limit) {
        timespec spent = {};
        while (!flag && std::chrono::seconds(spent.tv_sec) + std::chrono::nanoseconds(spent.tv_nsec) < limit)
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &spent);
        return flag.load();
    };
    const RealTime conductor(40);
    EXPECT_EQ(conductor.error, 0);
    std::thread low([&] {
        const RealTime priority(10);
        lock();
        lowHolds = true;
        burnUntil(highWants, std::chrono::seconds(5));
        unlock();
    });
    EXPECT_TRUE(support::comesTrue([&] { return lowHolds.load(); }));
    std::thread middle([&] {
        const RealTime priority(20);
        middleBurns = true;
        hasOvertaken = burnUntil(highHas, burning);
    });
    EXPECT_TRUE(support::comesTrue([&] { return middleBurns.load(); }));
    std::thread high([&] {
        const RealTime priority(30);
        highWants = true;
        lock();
        highHas = true;
        unlock();
    });
    high.join();
    middle.join();
    low.join();
    return hasOvertaken;
}

TEST_F(Mutex, itsOwnerInheritsThePriorityOfAWaiter)
{
#if defined(__arm__)
    if (getenv("KOCUTIL_BOARD") == nullptr)
        GTEST_SKIP() << "not on a real kernel of this architecture";
#endif
    if (const RealTime probe(40); probe.error != 0)
        GTEST_SKIP() << "real-time scheduling is refused: " << strerror(probe.error);
    for (cu_Mutex* mutex : {checking, recursive})
        EXPECT_TRUE(highOvertakesMiddle(
            std::chrono::seconds(5), [=] { EXPECT_EQ(cu_Mutex_lock(mutex), 0U); },
            [=] { EXPECT_EQ(cu_Mutex_unlock(mutex), 0U); }));
    pthread_mutex_t plain = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_FALSE(highOvertakesMiddle(
        std::chrono::milliseconds(300), [&] { pthread_mutex_lock(&plain); }, [&] { pthread_mutex_unlock(&plain); }))
        << "the trial shows nothing";
}

// --- The mutex of the process ---------------------------------------------------------------------------------------

cu_Mutex* lockedEarly = nullptr;

[[gnu::constructor(101)]] void lockEarly()
{
    cu_Mutex* lock = cu_atomicLock();
    bool again = true;
    if (cu_Mutex_lock(lock) == 0 && cu_Mutex_tryLock(lock, &again) == 0 && !again && cu_Mutex_unlock(lock) == 0)
        lockedEarly = lock;
}

TEST(AtomicLock, worksBeforeAnyConstructorOfTheProgram)
{
    EXPECT_NE(cu_atomicLock(), nullptr);
    EXPECT_EQ(lockedEarly, cu_atomicLock());
    EXPECT_EQ(cu_Mutex_lock(cu_atomicLock()), 0U);
    EXPECT_EQ(cu_Mutex_unlock(cu_atomicLock()), 0U);
}

} // namespace
