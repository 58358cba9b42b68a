// Conditions: with a mutex of their own, and with one of the caller.
#include "support/deadline.h"
#include "support/made.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/conditionVariable.h>
#include <cUtil/conditionWait.h>

#include <cerrno>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/conditionVariable";
constexpr char waitFile[] = "src/cUtil/conditionWait";

std::string failureText(const char* call, int error)
{
    return std::string(call) + " failed: [" + std::to_string(error) + "] " + strerror(error);
}

struct ConditionVariable : testing::Test {
    /// The first time-out, in this thread.
    void timeOut()
    {
        const cu_TimeValue past = {0, 1};
        bool signalled = true;
        EXPECT_FAILURE(cu_ConditionVariable_timedWait(condition, &past, &signalled), 0, "", "", "");
        EXPECT_FALSE(signalled);
    }

    support::Made<cu_ConditionVariable_new, cu_ConditionVariable_delete> condition;
};

TEST_F(ConditionVariable, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_ConditionVariable_new, cu_ConditionVariable_delete);
    bool signalled = true;
    const cu_TimeValue past = {0, 1};
    cu_ConditionVariable* none = nullptr;
    for (const auto& [call, shown] :
         {std::pair("pthread_condattr_init", "pthread_condattr_init( &attr )"),
          {"pthread_condattr_setclock", "pthread_condattr_setclock( &attr, cu_CLOCK_MONOTONIC )"},
          {"pthread_cond_init", "pthread_cond_init( &(*me)->cond, &attr )"},
          {"pthread_mutex_init", "pthread_mutex_init( &(*me)->mutex, NULL )"}})
        support::expectSystemFailures(
            file, {{call, EAGAIN, cu_ERROR_CONDWAIT_INIT_FAILED, "cu_ConditionVariable_new", failureText(shown, EAGAIN),
                    [&] { return cu_ConditionVariable_new(&none, nullptr); }}});
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, condition.get(), &past, &signalled}), cu_ConditionVariable_new,
                         cu_ConditionVariable_signal, cu_ConditionVariable_broadcast, cu_ConditionVariable_wait,
                         cu_ConditionVariable_timedWait);
    EXPECT_NULLS_REFUSED(file, std::tuple{condition.handle()}, cu_ConditionVariable_delete);
}

TEST_F(ConditionVariable, aSignalEndsAWaitAndLeavesTheMutexFree)
{
    for (const bool isTimed : {false, true}) {
        std::atomic<bool> ended = false;
        const std::jthread waiter([&] {
            bool signalled = !isTimed;
            const cu_TimeValue later = support::fromNow(60'000, CLOCK_MONOTONIC);
            EXPECT_EQ(isTimed ? cu_ConditionVariable_timedWait(condition, &later, &signalled)
                              : cu_ConditionVariable_wait(condition),
                      0U);
            EXPECT_TRUE(signalled);
            ended = true;
        });
        // Signals are not remembered, so they go on until it has been there.
        EXPECT_TRUE(support::comesTrue([&] { return cu_ConditionVariable_signal(condition) == 0 && ended; }));
    }
    timeOut();
}

TEST_F(ConditionVariable, aTimeOutLeavesTheMutexHeldUntilTheDeletionByWhomever)
{
    for (const bool isAnothers : {false, true}) {
        if (isAnothers && support::mutexesAreWatched) // here the owner of a mutex never gives it back itself
            continue;
        ASSERT_EQ(condition == nullptr ? cu_ConditionVariable_new(condition.handle(), nullptr) : 0, 0U);
        isAnothers ? std::thread([&] { timeOut(); }).join() : timeOut();
        std::atomic<bool> ended = false;
        std::thread waiter([&, waitedFor = condition.get()] {
            EXPECT_EQ(cu_ConditionVariable_wait(waitedFor), 0U);
            ended = true;
        });
        // It waits for the mutex, so that no number of signals lets it go.
        const auto isLetGo = [&] { return cu_ConditionVariable_broadcast(condition) != 0 || ended; };
        EXPECT_FALSE(support::comesTrue(isLetGo, std::chrono::milliseconds(50)));
        EXPECT_EQ(cu_ConditionVariable_delete(condition.handle()), 0U);
        waiter.join();
    }
}

TEST_F(ConditionVariable, deletionLetsEverybodyOutBeforeItFrees)
{
    constexpr unsigned count = 4;
    for (unsigned round = 0; round < 30; ++round) {
        support::GraveAllocator allocator;
        cu_ConditionVariable* crowded = nullptr;
        ASSERT_EQ(cu_ConditionVariable_new(&crowded, allocator.get()), 0U);
        std::atomic<unsigned> begun = 0;
        std::vector<std::jthread> waiters;
        for (unsigned index = 0; index < count; ++index)
            waiters.emplace_back([&begun, waitedFor = crowded] {
                ++begun;
                EXPECT_EQ(cu_ConditionVariable_wait(waitedFor), 0U);
            });
        // They may not be deleted under before they have come in; where within the wait they are differs by round.
        EXPECT_TRUE(support::comesTrue([&] { return begun == count; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(cu_ConditionVariable_delete(&crowded), 0U);
    }
}

TEST_F(ConditionVariable, aCancelledWaiterLeavesToo)
{
    pthread_t waiter = {};
    const auto wait = [](void* waitedFor) -> void* {
        for (;;)
            cu_ConditionVariable_wait(static_cast<cu_ConditionVariable*>(waitedFor));
    };
    ASSERT_EQ(pthread_create(&waiter, nullptr, wait, condition.get()), 0);
    EXPECT_EQ(pthread_cancel(waiter), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(waiter, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    timeOut(); // the mutex is free
}

TEST_F(ConditionVariable, failuresHaveNoTextAndKeepTheObject)
{
    bool signalled = false;
    const cu_TimeValue later = support::fromNow(60'000, CLOCK_MONOTONIC);
    const auto wait = [&] { return cu_ConditionVariable_wait(condition); };
    const auto timedWait = [&] {
        signalled = false;
        return cu_ConditionVariable_timedWait(condition, &later, &signalled) + (signalled ? 0 : 1);
    };
    constexpr cu_ErrorCode waitFailed = cu_ERROR_CONDWAIT_WAIT_FAILED;
    constexpr cu_ErrorCode signalFailed = cu_ERROR_CONDWAIT_SIGNAL_FAILED;
    support::expectSystemFailures(
        file, {{"pthread_mutex_lock", EAGAIN, waitFailed, "cu_ConditionVariable_wait", "", wait},
               {"pthread_cond_wait", EAGAIN, waitFailed, "cu_ConditionVariable_wait", "", wait},
               {"pthread_mutex_lock", EAGAIN, waitFailed, "cu_ConditionVariable_timedWait", "", timedWait},
               {"pthread_cond_timedwait", EAGAIN, waitFailed, "cu_ConditionVariable_timedWait", "", timedWait},
               {"pthread_cond_signal", EAGAIN, signalFailed, "cu_ConditionVariable_signal", "",
                [&] { return cu_ConditionVariable_signal(condition); }},
               {"pthread_cond_broadcast", EAGAIN, signalFailed, "cu_ConditionVariable_broadcast", "",
                [&] { return cu_ConditionVariable_delete(condition.handle()); }}});
    EXPECT_EQ(support::trace().find("cu_ConditionVariable_delete  -  "), 0U);
    timeOut(); // every failed wait has given the mutex back
    const support::Injection injection("pthread_mutex_destroy", EBUSY);
    EXPECT_EQ(cu_ConditionVariable_delete(condition.handle()), 0U);
    EXPECT_NE(injection.fired(), nullptr);
}

// --- The condition with the caller's mutex --------------------------------------------------------------------------

struct ConditionWait : testing::Test {
    support::Made<cu_ConditionWait_new, cu_ConditionWait_delete> condition;
    support::Made<cu_Mutex_new, cu_Mutex_delete> mutex{false};
    const cu_TimeValue past = {0, 1};
};

TEST_F(ConditionWait, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_ConditionWait_new, cu_ConditionWait_delete);
    bool signalled = true;
    cu_ConditionWait* none = nullptr;
    const std::string text = failureText("pthread_condattr_init( &attr )", EAGAIN);
    support::expectSystemFailures(
        waitFile, {{"pthread_condattr_init", EAGAIN, cu_ERROR_CONDWAIT_INIT_FAILED, "cu_ConditionWait_new", text,
                    [&] { return cu_ConditionWait_new(&none, nullptr); }}});
    EXPECT_NULLS_REFUSED(waitFile, (std::tuple{&none, condition.get(), mutex.get(), &past, &signalled}),
                         cu_ConditionWait_new, cu_ConditionWait_signal, cu_ConditionWait_broadcast,
                         cu_ConditionWait_wait, cu_ConditionWait_timedWait);
    EXPECT_NULLS_REFUSED(waitFile, std::tuple{condition.handle()}, cu_ConditionWait_delete);
}

TEST_F(ConditionWait, waitersAreWokenOneByOneAllTogetherAndByTheDeletion)
{
    unsigned tokens = 0;
    unsigned taken = 0;
    unsigned asleep = 0;
    std::vector<std::jthread> waiters;
    for (unsigned index = 0; index < 6; ++index)
        waiters.emplace_back([&] {
            ASSERT_EQ(cu_Mutex_lock(mutex), 0U);
            for (++asleep; tokens == 0;)
                ASSERT_EQ(cu_ConditionWait_wait(condition, mutex), 0U);
            --tokens;
            ++taken;
            ASSERT_EQ(cu_Mutex_unlock(mutex), 0U);
        });
    // Under the mutex, with all counted, all are within the wait.
    const auto whenReads = [&](const unsigned& value, unsigned wanted, unsigned given, const auto& wake) {
        EXPECT_TRUE(support::comesTrue([&] {
            EXPECT_EQ(cu_Mutex_lock(mutex), 0U);
            return value == wanted || cu_Mutex_unlock(mutex) != 0;
        }));
        tokens = given;
        EXPECT_EQ(wake(), 0U);
        EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
    };
    whenReads(asleep, 6, 1, [&] { return cu_ConditionWait_signal(condition); });
    whenReads(taken, 1, 2, [&] { return cu_ConditionWait_broadcast(condition); });
    // Which needs none of the others to get the mutex.
    whenReads(taken, 3, 3, [&] { return cu_ConditionWait_delete(condition.handle()); });
    whenReads(taken, 6, 0, [] { return 0; });
}

TEST_F(ConditionWait, deadlinesLieOnTheMonotonicClockAndSignalsDoNotBringThemForward)
{
    const support::SignalStorm storm;
    const cu_TimeValue deadline = support::fromNow(50, CLOCK_MONOTONIC);
    ASSERT_EQ(cu_Mutex_lock(mutex), 0U);
    // The real-time clock reads far beyond this deadline: with that clock the wait would end at once.
    for (bool signalled = true; signalled;)
        ASSERT_EQ(cu_ConditionWait_timedWait(condition, mutex, &deadline, &signalled), 0U);
    EXPECT_TRUE(support::hasPassed(deadline, CLOCK_MONOTONIC));
    // The caller has its mutex again.
    EXPECT_EQ(cu_Mutex_unlock(mutex), 0U);
}

TEST_F(ConditionWait, failuresAreToldAndKeepTheObject)
{
    bool signalled = false;
    const auto end = [&] { return cu_ConditionWait_delete(condition.handle()); };
    support::expectSystemFailures(
        waitFile,
        {{"pthread_cond_signal", EINVAL, cu_ERROR_CONDWAIT_SIGNAL_FAILED, "cu_ConditionWait_signal",
          failureText("pthread_cond_signal( &me->cond )", EINVAL), [&] { return cu_ConditionWait_signal(condition); }},
         {"pthread_cond_wait", EPERM, cu_ERROR_CONDWAIT_WAIT_FAILED, "cu_ConditionWait_wait",
          failureText("pthread_cond_wait( &me->cond, &mutex->mutex )", EPERM),
          [&] { return cu_ConditionWait_wait(condition, mutex); }},
         {"pthread_cond_timedwait", EPERM, cu_ERROR_CONDWAIT_WAIT_FAILED, "cu_ConditionWait_timedWait", "",
          [&] { return cu_ConditionWait_timedWait(condition, mutex, &past, &signalled); }},
         {"pthread_cond_destroy", EBUSY, cu_ERROR_CONDWAIT_FREE_FAILED, "cu_ConditionWait_delete",
          failureText("pthread_cond_destroy( &(*me)->cond )", EBUSY), end},
         {"pthread_cond_broadcast", EINVAL, cu_ERROR_CONDWAIT_SIGNAL_FAILED, "cu_ConditionWait_broadcast",
          failureText("pthread_cond_broadcast( &me->cond )", EINVAL), end}});
    EXPECT_TRUE(signalled);
    EXPECT_EQ(support::trace().find("cu_ConditionWait_delete  -  "), 0U);
    EXPECT_NE(condition.get(), nullptr);
}

} // namespace
