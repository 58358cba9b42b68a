#include "support/process.h"
#include "support/record.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/conditionWait.h>

#include <cerrno>
#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/conditionWait";

std::string failureText(const char* call, int error)
{
    return std::string(call) + " failed: [" + std::to_string(error) + "] " + strerror(error);
}

class ConditionWait : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(cu_ConditionWait_new(&condition, nullptr), 0U);
        ASSERT_EQ(cu_Mutex_new(&mutex, false, nullptr), 0U);
    }
    void TearDown() override
    {
        if (condition != nullptr) {
            EXPECT_EQ(cu_ConditionWait_delete(&condition), 0U);
        }
        EXPECT_EQ(cu_Mutex_delete(&mutex), 0U);
    }

    cu_ConditionWait* condition = nullptr;
    cu_Mutex* mutex = nullptr;
    const cu_TimeValue past = {0, 1};
};

TEST_F(ConditionWait, constructorsLeaveNothingBehindAndNameTheCall)
{
    support::sweep<cu_ConditionWait>("cu_ConditionWait_new", cu_ConditionWait_new, cu_ConditionWait_delete);
    cu_ConditionWait* none = nullptr;
    const std::pair<const char*, const char*> calls[] = {
        {"pthread_condattr_init", "pthread_condattr_init( &attr )"},
        {"pthread_condattr_setclock", "pthread_condattr_setclock( &attr, cu_CLOCK_MONOTONIC )"},
        {"pthread_cond_init", "pthread_cond_init( &(*me)->cond, &attr )"}};
    for (const auto& [call, shown] : calls) {
        const support::Injection injection(call, EAGAIN);
        EXPECT_SYSTEM_FAILURE(cu_ConditionWait_new(&none, nullptr), cu_ERROR_CONDWAIT_INIT_FAILED, EAGAIN,
                              "cu_ConditionWait_new", file, failureText(shown, EAGAIN));
    }
}

TEST_F(ConditionWait, badArgumentsAreRefused)
{
    bool signalled = true;
    cu_ConditionWait* none = nullptr;
    EXPECT_REFUSED(cu_ConditionWait_new(nullptr, nullptr), "cu_ConditionWait_new", file);
    EXPECT_REFUSED(cu_ConditionWait_new(&condition, nullptr), "cu_ConditionWait_new", file);
    EXPECT_REFUSED(cu_ConditionWait_delete(nullptr), "cu_ConditionWait_delete", file);
    EXPECT_REFUSED(cu_ConditionWait_delete(&none), "cu_ConditionWait_delete", file);
    EXPECT_REFUSED(cu_ConditionWait_signal(nullptr), "cu_ConditionWait_signal", file);
    EXPECT_REFUSED(cu_ConditionWait_broadcast(nullptr), "cu_ConditionWait_broadcast", file);
    EXPECT_REFUSED(cu_ConditionWait_wait(nullptr, mutex), "cu_ConditionWait_wait", file);
    EXPECT_REFUSED(cu_ConditionWait_wait(condition, nullptr), "cu_ConditionWait_wait", file);
    constexpr char timed[] = "cu_ConditionWait_timedWait";
    EXPECT_REFUSED(cu_ConditionWait_timedWait(nullptr, mutex, &past, &signalled), timed, file);
    EXPECT_REFUSED(cu_ConditionWait_timedWait(condition, nullptr, &past, &signalled), timed, file);
    EXPECT_REFUSED(cu_ConditionWait_timedWait(condition, mutex, nullptr, &signalled), timed, file);
    EXPECT_REFUSED(cu_ConditionWait_timedWait(condition, mutex, &past, nullptr), timed, file);
}

TEST_F(ConditionWait, waitersAreSignalledOneByOneOrAllTogether)
{
    constexpr unsigned count = 4;
    unsigned tokens = 0;
    unsigned taken = 0;
    unsigned asleep = 0;
    std::vector<std::thread> waiters;
    for (unsigned index = 0; index < count; ++index)
        waiters.emplace_back([&] {
            ASSERT_EQ(cu_Mutex_lock(mutex), 0U);
            ++asleep;
            while (tokens == 0)
                ASSERT_EQ(cu_ConditionWait_wait(condition, mutex), 0U);
            --tokens;
            ++taken;
            ASSERT_EQ(cu_Mutex_unlock(mutex), 0U);
        });
    const auto reads = [&](const unsigned& value, unsigned wanted) {
        EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
        const bool is = value == wanted;
        EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
        return is;
    };
    EXPECT_TRUE(support::comesTrue([&] { return reads(asleep, count); }));
    EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
    tokens = 1;
    EXPECT_EQ(cu_ConditionWait_signal(condition), 0U);
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
    EXPECT_TRUE(support::comesTrue([&] { return reads(taken, 1); }));
    EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
    tokens = count - 1;
    EXPECT_EQ(cu_ConditionWait_broadcast(condition), 0U);
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(taken, count);
}

TEST_F(ConditionWait, deadlinesLieOnTheMonotonicClockAndSignalsDoNotBringThemForward)
{
    const support::SignalStorm storm;
    cu_TimeValue deadline = {};
    ASSERT_EQ(cu_makeTimeoutMilliSecond(&deadline, 50, CLOCK_MONOTONIC), 0U);
    ASSERT_EQ(cu_Mutex_lock(mutex), 0U);
    // The real-time clock reads far beyond this deadline: with that clock the wait would end at once.
    for (bool signalled = true; signalled;)
        ASSERT_EQ(cu_ConditionWait_timedWait(condition, mutex, &deadline, &signalled), 0U);
    cu_TimeValue now = {};
    ASSERT_EQ(cu_getTime(&now, CLOCK_MONOTONIC), 0U);
    EXPECT_TRUE(now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec));
    // The caller has its mutex again.
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
}

TEST_F(ConditionWait, aWaitNeedsTheMutex)
{
    if (support::mutexesAreWatched)
        GTEST_SKIP() << "a mutex is given back by a thread that does not hold it";
    EXPECT_SYSTEM_FAILURE(cu_ConditionWait_wait(condition, mutex), cu_ERROR_CONDWAIT_WAIT_FAILED, EPERM,
                          "cu_ConditionWait_wait", file,
                          failureText("pthread_cond_wait( &me->cond, &mutex->mutex )", EPERM));
}

TEST_F(ConditionWait, failuresAreToldAndKeepTheObject)
{
    bool signalled = false;
    ASSERT_EQ(cu_Mutex_lock(mutex), 0U);
    const cu_TimeValue invalid = {0, -1};
    EXPECT_SYSTEM_FAILURE(cu_ConditionWait_timedWait(condition, mutex, &invalid, &signalled),
                          cu_ERROR_CONDWAIT_WAIT_FAILED, EINVAL, "cu_ConditionWait_timedWait", file, "");
    EXPECT_TRUE(signalled);
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
    {
        const support::Injection injection("pthread_cond_signal", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ConditionWait_signal(condition), cu_ERROR_CONDWAIT_SIGNAL_FAILED, EINVAL,
                              "cu_ConditionWait_signal", file, failureText("pthread_cond_signal( &me->cond )", EINVAL));
    }
    {
        const support::Injection injection("pthread_cond_broadcast", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ConditionWait_delete(&condition), cu_ERROR_CONDWAIT_SIGNAL_FAILED, EINVAL,
                              "cu_ConditionWait_broadcast", file,
                              failureText("pthread_cond_broadcast( &me->cond )", EINVAL));
        EXPECT_EQ(support::trace().find("cu_ConditionWait_delete  -  "), 0U);
    }
    const support::Injection injection("pthread_cond_destroy", EBUSY);
    EXPECT_SYSTEM_FAILURE(cu_ConditionWait_delete(&condition), cu_ERROR_CONDWAIT_FREE_FAILED, EBUSY,
                          "cu_ConditionWait_delete", file, failureText("pthread_cond_destroy( &(*me)->cond )", EBUSY));
    EXPECT_NE(condition, nullptr);
}

TEST_F(ConditionWait, deletionWakesTheWaiters)
{
    constexpr unsigned count = 3;
    unsigned asleep = 0;
    std::vector<std::thread> waiters;
    for (unsigned index = 0; index < count; ++index)
        waiters.emplace_back([&] {
            EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
            ++asleep;
            EXPECT_EQ(cu_ConditionWait_wait(condition, mutex), 0U);
            EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
        });
    // Under the mutex, with all counted, all are within the wait; deletion needs no waiter to get the mutex.
    bool areAsleep = false;
    EXPECT_TRUE(support::comesTrue([&] {
        EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
        areAsleep = asleep == count;
        return areAsleep || cu_Mutex_unlock(mutex) != 0;
    }));
    EXPECT_EQ(cu_ConditionWait_delete(&condition), 0U);
    EXPECT_EQ(condition, nullptr);
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
    for (std::thread& waiter : waiters)
        waiter.join();
}

} // namespace
