// Locks: the mutex, the mutex of the process, the read-write mutex and the spin lock.
#include "support/deadline.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/atomicLock.h>
#include <cUtil/rwMutex.h>
#include <cUtil/spinLock.h>

#include <cerrno>
#include <cstdlib>
#include <sched.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/mutex";
constexpr char rwFile[] = "src/cUtil/rwMutex";
constexpr char spinFile[] = "src/cUtil/spinLock";
constexpr cu_TimeValue past = {1, 0};

template <typename Function>
void elsewhere(Function function)
{
    std::thread(function).join();
}

/// Whether another thread gets a lock at once; it gives it back.
template <typename Lock>
bool isFree(Lock* lock, cu_ErrorCode (*tryLock)(Lock*, bool*), cu_ErrorCode (*unlock)(Lock*))
{
    bool locked = false;
    elsewhere([&] {
        EXPECT_EQ(tryLock(lock, &locked), 0U);
        EXPECT_EQ(locked ? unlock(lock) : 0, 0U);
    });
    return locked;
}

/// Threads count together, each under one of two ways to lock.
template <typename LockA, typename LockB, typename Unlock>
void expectExclusion(unsigned rounds, LockA lockA, LockB lockB, Unlock unlock)
{
    constexpr unsigned threadCount = 4;
    unsigned count = 0;
    std::vector<std::thread> threads;
    for (unsigned index = 0; index < threadCount; ++index)
        threads.emplace_back([&, isFirst = index % 2 == 0] {
            for (unsigned round = 0; round < rounds; ++round) {
                ASSERT_EQ(isFirst ? lockA() : lockB(), 0U);
                ++count;
                ASSERT_EQ(unlock(), 0U);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, threadCount * rounds);
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
};

TEST_F(Mutex, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_Mutex_new, cu_Mutex_delete, false);
    cu_Mutex* none = nullptr;
    bool locked = true;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, checking, &past, &locked}), cu_Mutex_new, cu_Mutex_lock,
                         cu_Mutex_tryLock, cu_Mutex_timedLock, cu_Mutex_unlock);
    EXPECT_NULLS_REFUSED(file, std::tuple{&checking}, cu_Mutex_delete);
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
        EXPECT_FALSE(isFree(recursive, cu_Mutex_tryLock, cu_Mutex_unlock));
        EXPECT_EQ(cu_Mutex_unlock(recursive), 0U);
    }
    EXPECT_TRUE(isFree(recursive, cu_Mutex_tryLock, cu_Mutex_unlock));
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
    const auto meets = [](const char* systemCall, int result, const std::string& name, const auto& call, bool isError,
                          bool expected) {
        SCOPED_TRACE(name + ", " + systemCall + " gives " + std::to_string(result));
        bool locked = true;
        const support::Injection injection(systemCall, result);
        const support::Failure failure = support::failureOf([&] { return call(&locked); });
        EXPECT_STREQ(injection.fired(), systemCall);
        EXPECT_EQ(failure, isError ? (support::Failure{cu_ERROR_MUTEX_LOCK_FAILED, name, file, "", result})
                                   : (support::Failure{0, "", "", ""}));
        EXPECT_EQ(locked, expected);
    };
    for (const int result : {EBUSY, EDEADLK})
        meets("pthread_mutex_trylock", result, "cu_Mutex_tryLock", tryLock, false, false);
    for (const int result : {EAGAIN, ETIMEDOUT})
        meets("pthread_mutex_trylock", result, "cu_Mutex_tryLock", tryLock, true, true);
    // Whatever a first look says, the call that waits decides.
    for (const int result : {EINVAL, EBUSY}) {
        meets("pthread_mutex_trylock", result, "cu_Mutex_lock", lock, false, true);
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
        meets("pthread_mutex_trylock", result, "cu_Mutex_timedLock", timedLock, false, true);
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    }
    // It is reached by another thread's lock.
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        for (const int result : {EBUSY, ETIMEDOUT})
            meets("pthread_mutex_timedlock", result, "cu_Mutex_timedLock", timedLock, false, false);
        meets("pthread_mutex_lock", EBUSY, "cu_Mutex_lock", lock, true, true);
    });
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
}

TEST_F(Mutex, threadsExcludeEachOther)
{
    const cu_TimeValue later = support::fromNow(60'000);
    const auto timedLock = [&] {
        bool locked = false;
        const cu_ErrorCode code = cu_Mutex_timedLock(checking, &later, &locked);
        return locked ? code : ~0U;
    };
    expectExclusion(
        20'000, [&] { return cu_Mutex_lock(checking); }, timedLock, [&] { return cu_Mutex_unlock(checking); });
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
    ASSERT_NE(cu_atomicLock(), nullptr);
    EXPECT_EQ(lockedEarly, cu_atomicLock());
    EXPECT_EQ(cu_Mutex_lock(cu_atomicLock()), 0U);
    EXPECT_EQ(cu_Mutex_unlock(cu_atomicLock()), 0U);
}

// --- The read-write mutex -------------------------------------------------------------------------------------------

class RWMutex : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_RWMutex_new(&lock, nullptr), 0U); }
    void TearDown() override
    {
        EXPECT_EQ(cu_RWMutex_delete(&lock), 0U);
        EXPECT_EQ(lock, nullptr);
    }

    bool canRead() { return isFree(lock, cu_RWMutex_tryReadLock, cu_RWMutex_unlock); }
    bool canWrite() { return isFree(lock, cu_RWMutex_tryWriteLock, cu_RWMutex_unlock); }

    cu_RWMutex* lock = nullptr;
};

TEST_F(RWMutex, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_RWMutex_new, cu_RWMutex_delete);
    cu_RWMutex* none = nullptr;
    bool locked = true;
    EXPECT_NULLS_REFUSED(rwFile, (std::tuple{&none, lock, &past, &locked}), cu_RWMutex_new, cu_RWMutex_readLock,
                         cu_RWMutex_writeLock, cu_RWMutex_tryReadLock, cu_RWMutex_tryWriteLock,
                         cu_RWMutex_timedReadLock, cu_RWMutex_timedWriteLock, cu_RWMutex_unlock);
    EXPECT_NULLS_REFUSED(rwFile, std::tuple{&lock}, cu_RWMutex_delete);
}

TEST_F(RWMutex, manyReadOrOneWrites)
{
    ASSERT_EQ(cu_RWMutex_readLock(lock), 0U);
    EXPECT_TRUE(canRead());
    EXPECT_FALSE(canWrite());
    elsewhere([&] {
        const support::SignalStorm storm;
        bool locked = true;
        const cu_TimeValue soon = support::fromNow(20);
        EXPECT_EQ(cu_RWMutex_timedWriteLock(lock, &soon, &locked), 0U);
        EXPECT_FALSE(locked);
        EXPECT_TRUE(support::hasPassed(soon));
        EXPECT_EQ(cu_RWMutex_timedReadLock(lock, &past, &locked), 0U);
        EXPECT_TRUE(locked);
        EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);
    });
    EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);

    ASSERT_EQ(cu_RWMutex_writeLock(lock), 0U);
    EXPECT_FALSE(canRead());
    EXPECT_FALSE(canWrite());
    EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);
    EXPECT_TRUE(canWrite());
}

TEST_F(RWMutex, aWriterThatLocksAgainIsToldThatItGotItAndStillUnlocksOnce)
{
    bool locked = true;
    const cu_TimeValue later = {2'000'000'000, 0};
    ASSERT_EQ(cu_RWMutex_writeLock(lock), 0U);
    EXPECT_FAILURE(cu_RWMutex_writeLock(lock), 0, "", "", "");
    EXPECT_FAILURE(cu_RWMutex_readLock(lock), 0, "", "", "");
    EXPECT_EQ(cu_RWMutex_tryReadLock(lock, &locked), 0U);
    EXPECT_FALSE(locked);
    EXPECT_SYSTEM_FAILURE(cu_RWMutex_timedReadLock(lock, &later, &locked), cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK,
                          "cu_RWMutex_timedReadLock", rwFile, "");
    EXPECT_TRUE(locked);
    EXPECT_FALSE(canRead());
    EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);
    EXPECT_TRUE(canWrite());
}

TEST_F(RWMutex, eachResultOfTheSystemHasItsMeaning)
{
    enum Sense { got, busy, failed };
    const struct {
        std::string call;
        std::string systemCall;
        std::function<cu_ErrorCode(bool*)> function;
        Sense onBusy, onTimeOut, onDeadlock;
        cu_ErrorCode code = cu_ERROR_MUTEX_LOCK_FAILED;
    } cases[] = {
        {"readLock", "rdlock", [&](bool*) { return cu_RWMutex_readLock(lock); }, failed, failed, got},
        {"writeLock", "wrlock", [&](bool*) { return cu_RWMutex_writeLock(lock); }, failed, failed, got},
        {"tryReadLock", "tryrdlock", [&](bool* locked) { return cu_RWMutex_tryReadLock(lock, locked); }, busy, failed,
         failed},
        {"tryWriteLock", "trywrlock", [&](bool* locked) { return cu_RWMutex_tryWriteLock(lock, locked); }, busy, failed,
         failed},
        {"timedReadLock", "timedrdlock", [&](bool* locked) { return cu_RWMutex_timedReadLock(lock, &past, locked); },
         failed, busy, failed},
        {"timedWriteLock", "timedwrlock", [&](bool* locked) { return cu_RWMutex_timedWriteLock(lock, &past, locked); },
         failed, busy, failed},
        {"unlock", "unlock", [&](bool*) { return cu_RWMutex_unlock(lock); }, failed, failed, failed,
         cu_ERROR_MUTEX_UNLOCK_FAILED},
        {"delete", "destroy", [&](bool*) { return cu_RWMutex_delete(&lock); }, failed, failed, failed,
         cu_ERROR_MUTEX_FREE_FAILED},
    };
    for (const auto& one : cases)
        for (const auto& [result, sense] :
             {std::pair(EBUSY, one.onBusy), {ETIMEDOUT, one.onTimeOut}, {EDEADLK, one.onDeadlock}, {EAGAIN, failed}}) {
            SCOPED_TRACE(one.call + " is given " + std::to_string(result));
            bool locked = true;
            const std::string systemCall = "pthread_rwlock_" + one.systemCall;
            const support::Injection injection(systemCall.c_str(), result);
            EXPECT_EQ(support::failureOf([&] { return one.function(&locked); }),
                      sense == failed ? (support::Failure{one.code, "cu_RWMutex_" + one.call, rwFile, "", result})
                                      : (support::Failure{0, "", "", ""}));
            EXPECT_EQ(locked, sense != busy);
            EXPECT_NE(lock, nullptr);
        }
}

// --- The spin lock --------------------------------------------------------------------------------------------------

TEST(SpinLock, excludesAndTellsFailures)
{
    EXPECT_CLEAN_FAILURES(cu_SpinLock_new, cu_SpinLock_delete);
    cu_SpinLock* none = nullptr;
    cu_SpinLock* lock = nullptr;
    bool locked = false;
    ASSERT_EQ(cu_SpinLock_new(&lock, nullptr), 0U);
    EXPECT_NULLS_REFUSED(spinFile, (std::tuple{&none, lock, &locked}), cu_SpinLock_new, cu_SpinLock_lock,
                         cu_SpinLock_tryLock, cu_SpinLock_unlock);
    EXPECT_NULLS_REFUSED(spinFile, std::tuple{&lock}, cu_SpinLock_delete);

    const auto take = [&] { return cu_SpinLock_lock(lock); };
    expectExclusion(2'500, take, take, [&] { return cu_SpinLock_unlock(lock); });
    EXPECT_TRUE(isFree(lock, cu_SpinLock_tryLock, cu_SpinLock_unlock));
    ASSERT_EQ(take(), 0U);
    EXPECT_FALSE(isFree(lock, cu_SpinLock_tryLock, cu_SpinLock_unlock));
    EXPECT_EQ(cu_SpinLock_unlock(lock), 0U);
    support::expectSystemFailures(
        spinFile, {{"pthread_spin_trylock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED, "cu_SpinLock_tryLock", "",
                    [&] { return cu_SpinLock_tryLock(lock, &locked); }},
                   {"pthread_spin_lock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED, "cu_SpinLock_lock", "", take},
                   {"pthread_spin_unlock", EPERM, cu_ERROR_SPINLOCK_UNLOCK_FAILED, "cu_SpinLock_unlock", "",
                    [&] { return cu_SpinLock_unlock(lock); }},
                   {"pthread_spin_destroy", EBUSY, cu_ERROR_CONDWAIT_FREE_FAILED, "cu_SpinLock_delete", "",
                    [&] { return cu_SpinLock_delete(&lock); }}});
    EXPECT_TRUE(locked);
    EXPECT_EQ(cu_SpinLock_delete(&lock), 0U);
    EXPECT_EQ(lock, nullptr);
}

} // namespace
