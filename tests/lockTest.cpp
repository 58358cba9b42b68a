// Locks: the mutex, the mutex of the process, the read-write mutex and the spin lock.
#include "support/deadline.h"
#include "support/made.h"
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
    {
        std::vector<std::jthread> threads;
        for (unsigned index = 0; index < threadCount; ++index)
            threads.emplace_back([&, isFirst = index % 2 == 0] {
                for (unsigned round = 0; round < rounds; ++round) {
                    ASSERT_EQ(isFirst ? lockA() : lockB(), 0U);
                    ++count;
                    ASSERT_EQ(unlock(), 0U);
                }
            });
    }
    EXPECT_EQ(count, threadCount * rounds);
}

enum Sense { got, busy, failed };

/// What a lock makes of a result of the system's call.
template <typename Call>
void expectMeaning(const char* sourceFile, const std::string& name, const std::string& systemCall, int result,
                   Sense sense, const Call& call, cu_ErrorCode code = cu_ERROR_MUTEX_LOCK_FAILED)
{
    SCOPED_TRACE(name + ", " + systemCall + " gives " + std::to_string(result));
    bool locked = true;
    const support::Injection injection(systemCall.c_str(), result);
    EXPECT_EQ(support::failureOf([&] { return call(&locked); }),
              sense == failed ? (support::Failure{code, name, sourceFile, "", result}) : support::Failure{});
    EXPECT_EQ(locked, sense != busy);
    EXPECT_NE(injection.fired(), nullptr);
}

struct Mutex : testing::Test {
    support::Made<cu_Mutex_new, cu_Mutex_delete> checking{false};
    support::Made<cu_Mutex_new, cu_Mutex_delete> recursive{true};
};

TEST_F(Mutex, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_Mutex_new, cu_Mutex_delete, false);
    cu_Mutex* none = nullptr;
    bool locked = true;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, checking.get(), &past, &locked}), cu_Mutex_new, cu_Mutex_lock,
                         cu_Mutex_tryLock, cu_Mutex_timedLock, cu_Mutex_unlock);
    EXPECT_NULLS_REFUSED(file, std::tuple{checking.handle()}, cu_Mutex_delete);
}

TEST_F(Mutex, aCheckingOneTellsItsOwnerFromOthersAndStaysWhileItIsLocked)
{
    const cu_TimeValue later = support::fromNow(60'000);
    bool locked = true;
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    EXPECT_EQ(cu_Mutex_tryLock(checking, &locked), 0U);
    EXPECT_FALSE(locked);
    const auto fails = [](const char* function, cu_ErrorCode code, int error, const auto& call) {
        EXPECT_SYSTEM_FAILURE(call(), code, error, function, file, "");
    };
    const auto unlock = [&] { return cu_Mutex_unlock(checking); };
    fails("cu_Mutex_lock", cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK, [&] { return cu_Mutex_lock(checking); });
    fails("cu_Mutex_timedLock", cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK,
          [&] { return cu_Mutex_timedLock(checking, &later, &locked); });
    EXPECT_TRUE(locked);
    if (!support::mutexesAreWatched) { // a mutex is given back by a thread that does not hold it
        fails("cu_Mutex_delete", cu_ERROR_MUTEX_FREE_FAILED, EBUSY, [&] { return cu_Mutex_delete(checking.handle()); });
        elsewhere([&] { fails("cu_Mutex_unlock", cu_ERROR_MUTEX_UNLOCK_FAILED, EPERM, unlock); });
    }
    EXPECT_EQ(unlock(), 0U);
    if (!support::mutexesAreWatched)
        fails("cu_Mutex_unlock", cu_ERROR_MUTEX_UNLOCK_FAILED, EPERM, unlock);
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
        EXPECT_FALSE(isFree(recursive.get(), cu_Mutex_tryLock, cu_Mutex_unlock));
        EXPECT_EQ(cu_Mutex_unlock(recursive), 0U);
    }
    EXPECT_TRUE(isFree(recursive.get(), cu_Mutex_tryLock, cu_Mutex_unlock));
}

TEST_F(Mutex, aBusyOneIsToldByTheFlagAtTheDeadlineAndNotBefore)
{
    const auto timedLock = [this](const cu_TimeValue& deadline) {
        bool locked = false;
        EXPECT_EQ(cu_Mutex_timedLock(checking, &deadline, &locked), 0U);
        return locked;
    };
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        const support::SignalStorm storm;
        EXPECT_FALSE(timedLock(past));
        const cu_TimeValue soon = support::fromNow(50);
        EXPECT_FALSE(timedLock(soon));
        EXPECT_TRUE(support::hasPassed(soon));
        const cu_TimeValue invalid = {0, 1'000'000'000};
        bool locked = false;
        EXPECT_SYSTEM_FAILURE(cu_Mutex_timedLock(checking, &invalid, &locked), cu_ERROR_MUTEX_LOCK_FAILED, EINVAL,
                              "cu_Mutex_timedLock", file, "");
        EXPECT_TRUE(locked);
    });
    const std::jthread waiter([&] {
        const support::SignalStorm storm;
        EXPECT_TRUE(timedLock(support::fromNow(60'000)));
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // so that it sleeps, most likely; either way holds
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
}

TEST_F(Mutex, eachResultOfTheSystemHasItsMeaning)
{
    const auto lock = [&](bool*) { return cu_Mutex_lock(checking); };
    const auto tryLock = [&](bool* locked) { return cu_Mutex_tryLock(checking, locked); };
    const auto timedLock = [&](bool* locked) { return cu_Mutex_timedLock(checking, &past, locked); };
    for (const auto& [result, sense] : {std::pair(EBUSY, busy), {EDEADLK, busy}, {EAGAIN, failed}, {ETIMEDOUT, failed}})
        expectMeaning(file, "cu_Mutex_tryLock", "pthread_mutex_trylock", result, sense, tryLock);
    // Whatever a first look says, the call that waits decides.
    for (const int result : {EINVAL, EBUSY}) {
        expectMeaning(file, "cu_Mutex_lock", "pthread_mutex_trylock", result, got, lock);
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
        expectMeaning(file, "cu_Mutex_timedLock", "pthread_mutex_trylock", result, got, timedLock);
        EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
    }
    // It is reached by another thread's lock.
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        for (const int result : {EBUSY, ETIMEDOUT})
            expectMeaning(file, "cu_Mutex_timedLock", "pthread_mutex_timedlock", result, busy, timedLock);
        expectMeaning(file, "cu_Mutex_lock", "pthread_mutex_lock", EBUSY, failed, lock);
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

/// Makes the calling thread, and those that it makes, real-time ones on the first processor that it may use.
int becomeRealTime(int priority)
{
    cpu_set_t processors;
    pthread_getaffinity_np(pthread_self(), sizeof(processors), &processors);
    std::size_t first = 0;
    while (!CPU_ISSET(first, &processors))
        ++first;
    CPU_ZERO(&processors);
    CPU_SET(first, &processors);
    const sched_param wanted = {priority};
    const int error = pthread_setaffinity_np(pthread_self(), sizeof(processors), &processors);
    return error != 0 ? error : pthread_setschedparam(pthread_self(), SCHED_FIFO, &wanted);
}

/// On one processor a low thread holds the mutex, a middle one burns the processor for so long, a high one wants the
/// mutex. Says whether the high one got it while the middle one was still burning. Only time on the processor counts:
/// whoever has taken that away from all three has done nothing to their order.
template <typename Lock, typename Unlock>
bool highOvertakesMiddle(std::chrono::milliseconds burning, Lock lock, Unlock unlock)
{
    std::atomic<bool> lowHolds = false;
    std::atomic<bool> middleBurns = false;
    std::atomic<bool> highWants = false;
    std::atomic<bool> highHas = false;
    std::atomic<bool> hasOvertaken = false;
    const auto burnUntil = [](const std::atomic<bool>& flag, std::chrono::milliseconds limit) {
        timespec spent = {};
        while (!flag && std::chrono::seconds(spent.tv_sec) + std::chrono::nanoseconds(spent.tv_nsec) < limit)
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &spent);
        return flag.load();
    };
    elsewhere([&] {
        EXPECT_EQ(becomeRealTime(40), 0);
        const std::jthread low([&] {
            becomeRealTime(10);
            lock();
            lowHolds = true;
            burnUntil(highWants, std::chrono::seconds(5));
            unlock();
        });
        EXPECT_TRUE(support::comesTrue([&] { return lowHolds.load(); }));
        const std::jthread middle([&] {
            becomeRealTime(20);
            middleBurns = true;
            hasOvertaken = burnUntil(highHas, burning);
        });
        EXPECT_TRUE(support::comesTrue([&] { return middleBurns.load(); }));
        const std::jthread high([&] {
            becomeRealTime(30);
            highWants = true;
            lock();
            highHas = true;
            unlock();
        });
    });
    return hasOvertaken;
}

TEST_F(Mutex, itsOwnerInheritsThePriorityOfAWaiter)
{
#if defined(__arm__)
    if (getenv("KOCUTIL_BOARD") == nullptr)
        GTEST_SKIP() << "not on a real kernel of this architecture";
#endif
    int error = 0;
    elsewhere([&] { error = becomeRealTime(40); });
    if (error != 0)
        GTEST_SKIP() << "real-time scheduling is refused: " << strerror(error);
    for (cu_Mutex* mutex : {checking.get(), recursive.get()})
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

struct RWMutex : testing::Test {
    bool canRead() { return isFree(lock.get(), cu_RWMutex_tryReadLock, cu_RWMutex_unlock); }
    bool canWrite() { return isFree(lock.get(), cu_RWMutex_tryWriteLock, cu_RWMutex_unlock); }

    support::Made<cu_RWMutex_new, cu_RWMutex_delete> lock;
};

TEST_F(RWMutex, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_RWMutex_new, cu_RWMutex_delete);
    cu_RWMutex* none = nullptr;
    bool locked = true;
    EXPECT_NULLS_REFUSED(rwFile, (std::tuple{&none, lock.get(), &past, &locked}), cu_RWMutex_new, cu_RWMutex_readLock,
                         cu_RWMutex_writeLock, cu_RWMutex_tryReadLock, cu_RWMutex_tryWriteLock,
                         cu_RWMutex_timedReadLock, cu_RWMutex_timedWriteLock, cu_RWMutex_unlock);
    EXPECT_NULLS_REFUSED(rwFile, std::tuple{lock.handle()}, cu_RWMutex_delete);
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

TEST_F(RWMutex, eachResultOfTheSystemHasItsMeaning)
{
    const auto meets = [](const std::string& name, const std::string& systemCall, const auto& call, Sense onBusy,
                          Sense onTimeOut, Sense onDeadlock, cu_ErrorCode code = cu_ERROR_MUTEX_LOCK_FAILED) {
        for (const auto& [result, sense] :
             {std::pair(EBUSY, onBusy), {ETIMEDOUT, onTimeOut}, {EDEADLK, onDeadlock}, {EAGAIN, failed}})
            expectMeaning(rwFile, "cu_RWMutex_" + name, "pthread_rwlock_" + systemCall, result, sense, call, code);
    };
    meets(
        "readLock", "rdlock", [&](bool*) { return cu_RWMutex_readLock(lock); }, failed, failed, got);
    meets(
        "writeLock", "wrlock", [&](bool*) { return cu_RWMutex_writeLock(lock); }, failed, failed, got);
    meets(
        "tryReadLock", "tryrdlock", [&](bool* locked) { return cu_RWMutex_tryReadLock(lock, locked); }, busy, failed,
        failed);
    meets(
        "tryWriteLock", "trywrlock", [&](bool* locked) { return cu_RWMutex_tryWriteLock(lock, locked); }, busy, failed,
        failed);
    meets(
        "timedReadLock", "timedrdlock", [&](bool* locked) { return cu_RWMutex_timedReadLock(lock, &past, locked); },
        failed, busy, failed);
    meets(
        "timedWriteLock", "timedwrlock", [&](bool* locked) { return cu_RWMutex_timedWriteLock(lock, &past, locked); },
        failed, busy, failed);
    meets(
        "unlock", "unlock", [&](bool*) { return cu_RWMutex_unlock(lock); }, failed, failed, failed,
        cu_ERROR_MUTEX_UNLOCK_FAILED);
    meets(
        "delete", "destroy", [&](bool*) { return cu_RWMutex_delete(lock.handle()); }, failed, failed, failed,
        cu_ERROR_MUTEX_FREE_FAILED);
    EXPECT_NE(lock.get(), nullptr);
}

// --- The spin lock --------------------------------------------------------------------------------------------------

TEST(SpinLock, excludesAndTellsFailures)
{
    EXPECT_CLEAN_FAILURES(cu_SpinLock_new, cu_SpinLock_delete);
    cu_SpinLock* none = nullptr;
    support::Made<cu_SpinLock_new, cu_SpinLock_delete> lock;
    bool locked = false;
    EXPECT_NULLS_REFUSED(spinFile, (std::tuple{&none, lock.get(), &locked}), cu_SpinLock_new, cu_SpinLock_lock,
                         cu_SpinLock_tryLock, cu_SpinLock_unlock);
    EXPECT_NULLS_REFUSED(spinFile, std::tuple{lock.handle()}, cu_SpinLock_delete);

    const auto take = [&] { return cu_SpinLock_lock(lock); };
    expectExclusion(2'500, take, take, [&] { return cu_SpinLock_unlock(lock); });
    EXPECT_TRUE(isFree(lock.get(), cu_SpinLock_tryLock, cu_SpinLock_unlock));
    ASSERT_EQ(take(), 0U);
    EXPECT_FALSE(isFree(lock.get(), cu_SpinLock_tryLock, cu_SpinLock_unlock));
    EXPECT_EQ(cu_SpinLock_unlock(lock), 0U);
    support::expectSystemFailures(
        spinFile, {{"pthread_spin_trylock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED, "cu_SpinLock_tryLock", "",
                    [&] { return cu_SpinLock_tryLock(lock, &locked); }},
                   {"pthread_spin_lock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED, "cu_SpinLock_lock", "", take},
                   {"pthread_spin_unlock", EPERM, cu_ERROR_SPINLOCK_UNLOCK_FAILED, "cu_SpinLock_unlock", "",
                    [&] { return cu_SpinLock_unlock(lock); }},
                   {"pthread_spin_destroy", EBUSY, cu_ERROR_CONDWAIT_FREE_FAILED, "cu_SpinLock_delete", "",
                    [&] { return cu_SpinLock_delete(lock.handle()); }}});
    EXPECT_TRUE(locked);
}

} // namespace
