#include "support/deadline.h"
#include "support/process.h"
#include "support/record.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/conditionVariable.h>

#include <cerrno>
#include <pthread.h>
#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/conditionVariable";

std::string failureText(const char* call, int error)
{
    return std::string(call) + " failed: [" + std::to_string(error) + "] " + strerror(error);
}

class ConditionVariable : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_ConditionVariable_new(&condition, nullptr), 0U); }
    void TearDown() override
    {
        if (condition != nullptr) {
            EXPECT_EQ(cu_ConditionVariable_delete(&condition), 0U);
        }
        EXPECT_EQ(condition, nullptr);
    }

    /// The first time-out, in this thread.
    void timeOut()
    {
        const cu_TimeValue past = {0, 1};
        bool signalled = true;
        EXPECT_EQ(support::failureOf([&] { return cu_ConditionVariable_timedWait(condition, &past, &signalled); }),
                  (support::Failure{0, "", "", ""}));
        EXPECT_FALSE(signalled);
    }

    cu_ConditionVariable* condition = nullptr;
};

TEST_F(ConditionVariable, constructorsLeaveNothingBehindAndNameTheCall)
{
    support::sweep<cu_ConditionVariable>("cu_ConditionVariable_new", cu_ConditionVariable_new,
                                         cu_ConditionVariable_delete);
    cu_ConditionVariable* none = nullptr;
    const std::pair<const char*, const char*> calls[] = {
        {"pthread_condattr_init", "pthread_condattr_init( &attr )"},
        {"pthread_condattr_setclock", "pthread_condattr_setclock( &attr, cu_CLOCK_MONOTONIC )"},
        {"pthread_cond_init", "pthread_cond_init( &(*me)->cond, &attr )"},
        {"pthread_mutex_init", "pthread_mutex_init( &(*me)->mutex, NULL )"}};
    for (const auto& [call, shown] : calls) {
        const support::Injection injection(call, EAGAIN);
        EXPECT_SYSTEM_FAILURE(cu_ConditionVariable_new(&none, nullptr), cu_ERROR_CONDWAIT_INIT_FAILED, EAGAIN,
                              "cu_ConditionVariable_new", file, failureText(shown, EAGAIN));
    }
}

TEST_F(ConditionVariable, badArgumentsAreRefused)
{
    bool signalled = true;
    const cu_TimeValue past = {0, 1};
    cu_ConditionVariable* none = nullptr;
    EXPECT_REFUSED(cu_ConditionVariable_new(nullptr, nullptr), "cu_ConditionVariable_new", file);
    EXPECT_REFUSED(cu_ConditionVariable_new(&condition, nullptr), "cu_ConditionVariable_new", file);
    EXPECT_REFUSED(cu_ConditionVariable_delete(nullptr), "cu_ConditionVariable_delete", file);
    EXPECT_REFUSED(cu_ConditionVariable_delete(&none), "cu_ConditionVariable_delete", file);
    EXPECT_REFUSED(cu_ConditionVariable_signal(nullptr), "cu_ConditionVariable_signal", file);
    EXPECT_REFUSED(cu_ConditionVariable_broadcast(nullptr), "cu_ConditionVariable_broadcast", file);
    EXPECT_REFUSED(cu_ConditionVariable_wait(nullptr), "cu_ConditionVariable_wait", file);
    constexpr char timed[] = "cu_ConditionVariable_timedWait";
    EXPECT_REFUSED(cu_ConditionVariable_timedWait(nullptr, &past, &signalled), timed, file);
    EXPECT_REFUSED(cu_ConditionVariable_timedWait(condition, nullptr, &signalled), timed, file);
    EXPECT_REFUSED(cu_ConditionVariable_timedWait(condition, &past, nullptr), timed, file);
}

TEST_F(ConditionVariable, aSignalEndsAWaitAndLeavesTheMutexFree)
{
    std::atomic<unsigned> ended{0};
    std::thread waiter([&] {
        EXPECT_EQ(cu_ConditionVariable_wait(condition), 0U);
        ++ended;
    });
    std::thread timedWaiter([&] {
        bool signalled = false;
        const cu_TimeValue later = support::fromNow(60'000, CLOCK_MONOTONIC);
        EXPECT_EQ(cu_ConditionVariable_timedWait(condition, &later, &signalled), 0U);
        EXPECT_TRUE(signalled);
        ++ended;
    });
    // Signals are not remembered, so they go on until both have been there.
    EXPECT_TRUE(support::comesTrue([&] {
        EXPECT_EQ(cu_ConditionVariable_signal(condition), 0U);
        return ended == 2;
    }));
    waiter.join();
    timedWaiter.join();
    timeOut();
}

TEST_F(ConditionVariable, deadlinesLieOnTheMonotonicClockAndSignalsDoNotBringThemForward)
{
    const support::SignalStorm storm;
    const cu_TimeValue deadline = support::fromNow(50, CLOCK_MONOTONIC);
    bool signalled = true;
    while (signalled)
        ASSERT_EQ(cu_ConditionVariable_timedWait(condition, &deadline, &signalled), 0U);
    cu_TimeValue now = {};
    ASSERT_EQ(cu_getTime(&now, CLOCK_MONOTONIC), 0U);
    EXPECT_TRUE(now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec));
}

TEST_F(ConditionVariable, aTimeOutLeavesTheMutexHeldUntilTheDeletion)
{
    timeOut();
    std::atomic<bool> begun{false};
    std::atomic<bool> ended{false};
    std::thread waiter([&, waitedFor = condition] {
        begun = true;
        EXPECT_EQ(cu_ConditionVariable_wait(waitedFor), 0U);
        ended = true;
    });
    EXPECT_TRUE(support::comesTrue([&] { return begun.load(); }));
    EXPECT_EQ(support::failureOf([&] { return cu_ConditionVariable_broadcast(condition); }).code, 0U);
    // It waits for the mutex, so that no number of signals lets it go.
    EXPECT_FALSE(support::comesTrue(
        [&] {
            EXPECT_EQ(cu_ConditionVariable_broadcast(condition), 0U);
            return ended.load();
        },
        std::chrono::milliseconds(50)));
    EXPECT_EQ(cu_ConditionVariable_delete(&condition), 0U);
    waiter.join();
    EXPECT_TRUE(ended);
}

TEST_F(ConditionVariable, deletionLetsEverybodyOutBeforeItFrees)
{
    constexpr unsigned rounds = 30;
    constexpr unsigned count = 4;
    for (unsigned round = 0; round < rounds; ++round) {
        support::GraveAllocator allocator;
        cu_ConditionVariable* crowded = nullptr;
        ASSERT_EQ(cu_ConditionVariable_new(&crowded, allocator.get()), 0U);
        std::atomic<unsigned> begun{0};
        std::atomic<unsigned> ended{0};
        std::vector<std::thread> waiters;
        for (unsigned index = 0; index < count; ++index)
            waiters.emplace_back(
                [&, waitedFor = crowded, later = support::fromNow(60'000, CLOCK_MONOTONIC), isTimed = index % 2 != 0] {
                    bool signalled = false;
                    ++begun;
                    EXPECT_EQ(isTimed ? cu_ConditionVariable_timedWait(waitedFor, &later, &signalled)
                                      : cu_ConditionVariable_wait(waitedFor),
                              0U);
                    EXPECT_EQ(signalled, isTimed);
                    ++ended;
                });
        // They may not be deleted under before they have come in; where within the wait they are differs by round.
        EXPECT_TRUE(support::comesTrue([&] { return begun == count; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(cu_ConditionVariable_delete(&crowded), 0U);
        EXPECT_EQ(crowded, nullptr);
        for (std::thread& waiter : waiters)
            waiter.join();
        EXPECT_EQ(ended, count);
    }
}

TEST_F(ConditionVariable, anotherThreadThanTheTimedOutOneDeletesIt)
{
    if (support::mutexesAreWatched)
        GTEST_SKIP() << "here the owner of a mutex never gives it back itself";
    std::thread([&] { timeOut(); }).join();
    std::atomic<bool> begun{false};
    std::thread waiter([&, waitedFor = condition] {
        begun = true;
        EXPECT_EQ(cu_ConditionVariable_wait(waitedFor), 0U);
    });
    EXPECT_TRUE(support::comesTrue([&] { return begun.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(cu_ConditionVariable_delete(&condition), 0U);
    waiter.join();
}

TEST_F(ConditionVariable, aCancelledWaiterLeavesToo)
{
    pthread_t waiter = {};
    ASSERT_EQ(pthread_create(
                  &waiter, nullptr,
                  [](void* waitedFor) -> void* {
                      for (;;)
                          cu_ConditionVariable_wait(static_cast<cu_ConditionVariable*>(waitedFor));
                  },
                  condition),
              0);
    EXPECT_EQ(pthread_cancel(waiter), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(waiter, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    timeOut(); // the mutex is free
}

TEST_F(ConditionVariable, failuresHaveNoTextAndKeepTheObject)
{
    bool signalled = false;
    const auto wait = [&] { return cu_ConditionVariable_wait(condition); };
    const auto timedWait = [&] {
        const cu_TimeValue later = support::fromNow(60'000, CLOCK_MONOTONIC);
        return cu_ConditionVariable_timedWait(condition, &later, &signalled);
    };
    for (const char* call : {"pthread_mutex_lock", "pthread_cond_wait"}) {
        const support::Injection injection(call, EAGAIN);
        EXPECT_SYSTEM_FAILURE(wait(), cu_ERROR_CONDWAIT_WAIT_FAILED, EAGAIN, "cu_ConditionVariable_wait", file, "");
    }
    for (const char* call : {"pthread_mutex_lock", "pthread_cond_timedwait"}) {
        signalled = false;
        const support::Injection injection(call, EAGAIN);
        EXPECT_SYSTEM_FAILURE(timedWait(), cu_ERROR_CONDWAIT_WAIT_FAILED, EAGAIN, "cu_ConditionVariable_timedWait",
                              file, "");
        EXPECT_TRUE(signalled);
    }
    {
        const support::Injection injection("pthread_cond_signal", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ConditionVariable_signal(condition), cu_ERROR_CONDWAIT_SIGNAL_FAILED, EINVAL,
                              "cu_ConditionVariable_signal", file, "");
    }
    {
        const support::Injection injection("pthread_cond_broadcast", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ConditionVariable_delete(&condition), cu_ERROR_CONDWAIT_SIGNAL_FAILED, EINVAL,
                              "cu_ConditionVariable_broadcast", file, "");
        EXPECT_EQ(support::trace().find("cu_ConditionVariable_delete  -  "), 0U);
    }
    timeOut(); // every failed wait has given the mutex back
    const support::Injection injection("pthread_mutex_destroy", EBUSY);
    EXPECT_EQ(cu_ConditionVariable_delete(&condition), 0U);
    EXPECT_NE(injection.fired(), nullptr);
}

} // namespace
