#include "support/process.h"
#include "support/record.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/rwMutex.h>

#include <cerrno>
#include <functional>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/rwMutex";

class RWMutex : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_RWMutex_new(&lock, nullptr), 0U); }
    void TearDown() override
    {
        EXPECT_EQ(cu_RWMutex_delete(&lock), 0U);
        EXPECT_EQ(lock, nullptr);
    }

    bool canRead()
    {
        bool locked = false;
        std::thread([&] {
            EXPECT_EQ(cu_RWMutex_tryReadLock(lock, &locked), 0U);
            EXPECT_EQ(locked ? cu_RWMutex_unlock(lock) : 0, 0U);
        }).join();
        return locked;
    }

    bool canWrite()
    {
        bool locked = false;
        std::thread([&] {
            EXPECT_EQ(cu_RWMutex_tryWriteLock(lock, &locked), 0U);
            EXPECT_EQ(locked ? cu_RWMutex_unlock(lock) : 0, 0U);
        }).join();
        return locked;
    }

    cu_RWMutex* lock = nullptr;
    const cu_TimeValue past = {1, 0};
};

TEST_F(RWMutex, constructorsLeaveNothingBehind)
{
    support::sweep<cu_RWMutex>("cu_RWMutex_new", cu_RWMutex_new, cu_RWMutex_delete);
}

TEST_F(RWMutex, badArgumentsAreRefused)
{
    bool locked = true;
    cu_RWMutex* none = nullptr;
    EXPECT_REFUSED(cu_RWMutex_new(nullptr, nullptr), "cu_RWMutex_new", file);
    EXPECT_REFUSED(cu_RWMutex_new(&lock, nullptr), "cu_RWMutex_new", file);
    EXPECT_REFUSED(cu_RWMutex_delete(nullptr), "cu_RWMutex_delete", file);
    EXPECT_REFUSED(cu_RWMutex_delete(&none), "cu_RWMutex_delete", file);
    EXPECT_REFUSED(cu_RWMutex_readLock(nullptr), "cu_RWMutex_readLock", file);
    EXPECT_REFUSED(cu_RWMutex_writeLock(nullptr), "cu_RWMutex_writeLock", file);
    EXPECT_REFUSED(cu_RWMutex_tryReadLock(nullptr, &locked), "cu_RWMutex_tryReadLock", file);
    EXPECT_REFUSED(cu_RWMutex_tryReadLock(lock, nullptr), "cu_RWMutex_tryReadLock", file);
    EXPECT_REFUSED(cu_RWMutex_tryWriteLock(nullptr, &locked), "cu_RWMutex_tryWriteLock", file);
    EXPECT_REFUSED(cu_RWMutex_tryWriteLock(lock, nullptr), "cu_RWMutex_tryWriteLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedReadLock(nullptr, &past, &locked), "cu_RWMutex_timedReadLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedReadLock(lock, nullptr, &locked), "cu_RWMutex_timedReadLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedReadLock(lock, &past, nullptr), "cu_RWMutex_timedReadLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedWriteLock(nullptr, &past, &locked), "cu_RWMutex_timedWriteLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedWriteLock(lock, nullptr, &locked), "cu_RWMutex_timedWriteLock", file);
    EXPECT_REFUSED(cu_RWMutex_timedWriteLock(lock, &past, nullptr), "cu_RWMutex_timedWriteLock", file);
    EXPECT_REFUSED(cu_RWMutex_unlock(nullptr), "cu_RWMutex_unlock", file);
}

TEST_F(RWMutex, manyReadOrOneWrites)
{
    ASSERT_EQ(cu_RWMutex_readLock(lock), 0U);
    EXPECT_TRUE(canRead());
    EXPECT_FALSE(canWrite());
    std::thread([&] {
        const support::SignalStorm storm;
        bool locked = true;
        cu_TimeValue soon = {};
        EXPECT_EQ(cu_makeTimeoutMilliSecond(&soon, 20, CLOCK_REALTIME), 0U);
        EXPECT_EQ(cu_RWMutex_timedWriteLock(lock, &soon, &locked), 0U);
        EXPECT_FALSE(locked);
        cu_TimeValue now = {};
        EXPECT_EQ(cu_getTime(&now, CLOCK_REALTIME), 0U);
        EXPECT_TRUE(now.tv_sec > soon.tv_sec || (now.tv_sec == soon.tv_sec && now.tv_nsec >= soon.tv_nsec));
        EXPECT_EQ(cu_RWMutex_timedReadLock(lock, &past, &locked), 0U);
        EXPECT_TRUE(locked);
        EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);
    }).join();
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
    EXPECT_EQ(support::failureOf([&] { return cu_RWMutex_writeLock(lock); }), (support::Failure{0, "", "", ""}));
    EXPECT_EQ(support::failureOf([&] { return cu_RWMutex_readLock(lock); }), (support::Failure{0, "", "", ""}));
    EXPECT_EQ(cu_RWMutex_tryReadLock(lock, &locked), 0U);
    EXPECT_FALSE(locked);
    EXPECT_SYSTEM_FAILURE(cu_RWMutex_timedReadLock(lock, &later, &locked), cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK,
                          "cu_RWMutex_timedReadLock", file, "");
    EXPECT_TRUE(locked);
    EXPECT_FALSE(canRead());
    EXPECT_EQ(cu_RWMutex_unlock(lock), 0U);
    EXPECT_TRUE(canWrite());
}

TEST_F(RWMutex, eachResultOfTheSystemHasItsMeaning)
{
    enum Sense { got, busy, failed };
    struct Case {
        const char* call;
        const char* failing;
        std::function<cu_ErrorCode(bool*)> function;
        cu_ErrorCode code;
        Sense onBusy, onTimeOut, onDeadlock;
    };
    const Case cases[] = {
        {"cu_RWMutex_readLock", "pthread_rwlock_rdlock", [&](bool*) { return cu_RWMutex_readLock(lock); },
         cu_ERROR_MUTEX_LOCK_FAILED, failed, failed, got},
        {"cu_RWMutex_writeLock", "pthread_rwlock_wrlock", [&](bool*) { return cu_RWMutex_writeLock(lock); },
         cu_ERROR_MUTEX_LOCK_FAILED, failed, failed, got},
        {"cu_RWMutex_tryReadLock", "pthread_rwlock_tryrdlock",
         [&](bool* locked) { return cu_RWMutex_tryReadLock(lock, locked); }, cu_ERROR_MUTEX_LOCK_FAILED, busy, failed,
         failed},
        {"cu_RWMutex_tryWriteLock", "pthread_rwlock_trywrlock",
         [&](bool* locked) { return cu_RWMutex_tryWriteLock(lock, locked); }, cu_ERROR_MUTEX_LOCK_FAILED, busy, failed,
         failed},
        {"cu_RWMutex_timedReadLock", "pthread_rwlock_timedrdlock",
         [&](bool* locked) { return cu_RWMutex_timedReadLock(lock, &past, locked); }, cu_ERROR_MUTEX_LOCK_FAILED,
         failed, busy, failed},
        {"cu_RWMutex_timedWriteLock", "pthread_rwlock_timedwrlock",
         [&](bool* locked) { return cu_RWMutex_timedWriteLock(lock, &past, locked); }, cu_ERROR_MUTEX_LOCK_FAILED,
         failed, busy, failed},
        {"cu_RWMutex_unlock", "pthread_rwlock_unlock", [&](bool*) { return cu_RWMutex_unlock(lock); },
         cu_ERROR_MUTEX_UNLOCK_FAILED, failed, failed, failed},
        {"cu_RWMutex_delete", "pthread_rwlock_destroy", [&](bool*) { return cu_RWMutex_delete(&lock); },
         cu_ERROR_MUTEX_FREE_FAILED, failed, failed, failed},
    };
    for (const Case& one : cases)
        for (const auto& [result, sense] :
             {std::pair(EBUSY, one.onBusy), {ETIMEDOUT, one.onTimeOut}, {EDEADLK, one.onDeadlock}, {EAGAIN, failed}}) {
            SCOPED_TRACE(std::string(one.call) + " is given " + std::to_string(result));
            bool locked = true;
            const support::Injection injection(one.failing, result);
            const support::Failure failure = support::failureOf([&] { return one.function(&locked); });
            EXPECT_EQ(failure, sense == failed ? (support::Failure{one.code, one.call, file, "", result})
                                               : (support::Failure{0, "", "", ""}));
            EXPECT_EQ(locked, sense != busy);
            EXPECT_NE(lock, nullptr);
        }
}

} // namespace
