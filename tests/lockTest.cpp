// Locks: the mutex, the mutex of the process, the read-write mutex and the spin lock.
#include "internal/mutexLayout.h"
#include "support/deadline.h"
#include "support/made.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/atomicLock.h>
#include <cUtil/rwMutex.h>
#include <cUtil/spinLock.h>

#include <cerrno>
#include <cstring>
#include <set>

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

/// What a function makes of the results of its system call: those that are `calm` do not make it fail. A flag that it
/// has tells them from success, and is set when it fails.
template <typename... Good, typename... Parameters>
void expectMeanings(const char* sourceFile, const std::string& function, const char* systemCall,
                    const std::set<int>& calm, cu_ErrorCode code, cu_ErrorCode (*call)(Parameters...),
                    const Good&... good)
{
    constexpr bool hasFlag = (std::is_same_v<Parameters, bool*> || ...);
    for (const int result : {EBUSY, ETIMEDOUT, EDEADLK, EAGAIN}) {
        SCOPED_TRACE(function + ", " + systemCall + " gives " + std::to_string(result));
        const bool isCalm = calm.contains(result);
        bool locked = isCalm;
        const support::Injection injection(systemCall, result);
        EXPECT_EQ(support::failureOf(
                      [&] { return call(support::goodArgument<Parameters>(std::tuple(good..., &locked))...); }),
                  isCalm ? support::Failure{} : (support::Failure{code, function, sourceFile, "", result}));
        EXPECT_EQ(locked, isCalm != hasFlag);
        EXPECT_NE(injection.fired(), nullptr);
    }
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
    const auto meets = [&](const std::string& name, const char* systemCall, const std::set<int>& calm, auto call) {
        expectMeanings(file, name, systemCall, calm, cu_ERROR_MUTEX_LOCK_FAILED, call, checking.get(), &past);
    };
    meets("cu_Mutex_tryLock", "pthread_mutex_trylock", {EBUSY, EDEADLK}, cu_Mutex_tryLock);
    ASSERT_EQ(cu_Mutex_lock(checking), 0U);
    elsewhere([&] {
        meets("cu_Mutex_timedLock", "pthread_mutex_timedlock", {EBUSY, ETIMEDOUT}, cu_Mutex_timedLock);
        meets("cu_Mutex_lock", "pthread_mutex_lock", {}, cu_Mutex_lock);
    });
    EXPECT_EQ(cu_Mutex_unlock(checking), 0U);
}

TEST_F(Mutex, isOneWhoseOwnerInheritsThePriorityOfAWaiter)
{
    for (const auto& [mutex, type] :
         {std::pair(checking.get(), PTHREAD_MUTEX_ERRORCHECK), {recursive.get(), PTHREAD_MUTEX_RECURSIVE}})
        for (const int protocol : {PTHREAD_PRIO_NONE, PTHREAD_PRIO_INHERIT}) {
            pthread_mutexattr_t attributes;
            pthread_mutex_t other;
            ASSERT_EQ(pthread_mutexattr_init(&attributes), 0);
            EXPECT_EQ(pthread_mutexattr_settype(&attributes, type), 0);
            EXPECT_EQ(pthread_mutexattr_setprotocol(&attributes, protocol), 0);
            EXPECT_EQ(pthread_mutex_init(&other, &attributes), 0);
            EXPECT_EQ(memcmp(&mutex->mutex, &other, sizeof(other)) == 0, protocol == PTHREAD_PRIO_INHERIT);
        }
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
    const auto meets = [&](const std::string& name, const std::string& systemCall, const std::set<int>& calm, auto call,
                           cu_ErrorCode code = cu_ERROR_MUTEX_LOCK_FAILED) {
        expectMeanings(rwFile, "cu_RWMutex_" + name, ("pthread_rwlock_" + systemCall).c_str(), calm, code, call,
                       lock.get(), lock.handle(), &past);
    };
    meets("readLock", "rdlock", {EDEADLK}, cu_RWMutex_readLock);
    meets("writeLock", "wrlock", {EDEADLK}, cu_RWMutex_writeLock);
    meets("tryReadLock", "tryrdlock", {EBUSY}, cu_RWMutex_tryReadLock);
    meets("tryWriteLock", "trywrlock", {EBUSY}, cu_RWMutex_tryWriteLock);
    meets("timedReadLock", "timedrdlock", {ETIMEDOUT}, cu_RWMutex_timedReadLock);
    meets("timedWriteLock", "timedwrlock", {ETIMEDOUT}, cu_RWMutex_timedWriteLock);
    meets("unlock", "unlock", {}, cu_RWMutex_unlock, cu_ERROR_MUTEX_UNLOCK_FAILED);
    meets("delete", "destroy", {}, cu_RWMutex_delete, cu_ERROR_MUTEX_FREE_FAILED);
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

    EXPECT_TRUE(isFree(lock.get(), cu_SpinLock_tryLock, cu_SpinLock_unlock));
    ASSERT_EQ(cu_SpinLock_lock(lock), 0U);
    EXPECT_FALSE(isFree(lock.get(), cu_SpinLock_tryLock, cu_SpinLock_unlock));
    EXPECT_EQ(cu_SpinLock_unlock(lock), 0U);
    const auto meets = [&](const std::string& name, const char* systemCall, const std::set<int>& calm, auto call,
                           cu_ErrorCode code = cu_ERROR_SPINLOCK_LOCK_FAILED) {
        expectMeanings(spinFile, name, systemCall, calm, code, call, lock.get(), lock.handle());
    };
    meets("cu_SpinLock_lock", "pthread_spin_lock", {}, cu_SpinLock_lock);
    meets("cu_SpinLock_tryLock", "pthread_spin_trylock", {EBUSY}, cu_SpinLock_tryLock);
    meets("cu_SpinLock_unlock", "pthread_spin_unlock", {}, cu_SpinLock_unlock, cu_ERROR_SPINLOCK_UNLOCK_FAILED);
    meets("cu_SpinLock_delete", "pthread_spin_destroy", {}, cu_SpinLock_delete, cu_ERROR_CONDWAIT_FREE_FAILED);
}

} // namespace
