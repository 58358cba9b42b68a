#include "internal/spin.h"
#include "support/deadline.h"
#include "support/made.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/runnable.h>

#include <gmock/gmock.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/runnable";

using Function = std::function<uintptr_t(void*)>;

uintptr_t call(void* argument, void* userData)
{
    return (*static_cast<Function*>(userData))(argument);
}

double processorSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void execute(cu_Runnable* runnable)
{
    uintptr_t result = 0;
    int argument = 0;
    EXPECT_EQ(cu_Runnable_execute(runnable, &argument, &result), 0U);
}

struct Runnable : testing::Test {
    Function function = [](void*) { return 0; };
    support::Made<cu_Runnable_new, cu_Runnable_delete> runnable{call, static_cast<void*>(&function)};
    static constexpr cu_TimeValue past = {0, 1};
};

TEST_F(Runnable, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    void* const none = nullptr;
    EXPECT_CLEAN_FAILURES(cu_Runnable_new, cu_Runnable_delete, &call, none);
    int argument = 0;
    bool signalled = false;
    uintptr_t result = 0;
    const cu_TimeValue deadline = {};
    cu_Runnable* empty = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&empty, &call, none}), cu_Runnable_new);
    EXPECT_NULLS_REFUSED(file, (std::tuple{runnable.get(), &argument, &result, &deadline, &signalled}),
                         cu_Runnable_lock, cu_Runnable_unlock, cu_Runnable_execute, cu_Runnable_wait,
                         cu_Runnable_timedWait);
    EXPECT_NULLS_REFUSED(file, std::tuple{runnable.handle()}, cu_Runnable_delete);
}

TEST_F(Runnable, anEndWithoutAnAnnouncementIsRefusedAndChangesNothing)
{
    EXPECT_FAILURE(cu_Runnable_unlock(runnable), cu_ERROR_COM_INVARIANT, "cu_Runnable_unlock", file, "");
    EXPECT_EQ(cu_Runnable_wait(runnable), 0U);
    // The argument and a full pointer back are passed all the same.
    function = [](void* passed) { return UINTPTR_MAX - reinterpret_cast<uintptr_t>(passed); };
    int argument = 0;
    uintptr_t result = 0;
    EXPECT_FAILURE(cu_Runnable_execute(runnable, &argument, &result), cu_ERROR_COM_INVARIANT, "cu_Runnable_unlock",
                   file, "");
    EXPECT_NE(support::trace().find("cu_Runnable_execute  -  src/cUtil/runnable:"), std::string::npos);
    EXPECT_EQ(result, UINTPTR_MAX - reinterpret_cast<uintptr_t>(&argument));
}

TEST_F(Runnable, everyWaiterStaysUntilTheLastExecutionEndsAndLeavesTheProcessorToOthers)
{
    constexpr std::chrono::milliseconds step(130);
    std::atomic<int> ended = 0;
    std::atomic<int> waits = 0;
    function = [&](void*) { return static_cast<uintptr_t>(++ended); };
    const auto timedWait = [&](const cu_TimeValue& deadline) {
        bool signalled = false;
        EXPECT_EQ(cu_Runnable_timedWait(runnable, &deadline, &signalled), 0U);
        EXPECT_TRUE(signalled);
    };
    for (int execution = 0; execution < 3; ++execution)
        ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    std::vector<std::jthread> waiters;
    for (int kind = 0; kind < 3; ++kind)
        waiters.emplace_back([&, kind] {
            const double before = processorSeconds();
            ++waits;
            if (kind == 0)
                EXPECT_EQ(cu_Runnable_wait(runnable), 0U);
            else
                timedWait(kind == 1 ? past : support::fromNow(5, CLOCK_MONOTONIC));
            EXPECT_EQ(ended, 3);
            EXPECT_LT(processorSeconds() - before, 0.04);
        });
    EXPECT_TRUE(support::comesTrue([&] { return waits == 3; }));
    for (int execution = 0; execution < 3; ++execution) {
        std::this_thread::sleep_for(step);
        execute(runnable);
    }
    timedWait(past); // nothing to wait for
}

TEST_F(Runnable, failedWaitsAreReportedAndDoNotKeepTheRunnableLocked)
{
    bool signalled = false;
    const cu_TimeValue invalid = {0, 1'000'000'000};
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    {
        const support::Injection injection("pthread_cond_wait", EINVAL);
        EXPECT_EQ(cu_Runnable_delete(runnable.handle()), cu_ERROR_CONDWAIT_WAIT_FAILED);
        for (const char* name : {"cu_Runnable_wait", "cu_Runnable_delete"})
            EXPECT_THAT(support::trace(), testing::HasSubstr(std::string(name) + "  -  src/cUtil/runnable:"));
    }
    std::thread waiter([&] { EXPECT_EQ(cu_Runnable_wait(runnable), 0U); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // so that it waits, most likely; either way holds
    EXPECT_EQ(cu_Runnable_timedWait(runnable, &invalid, &signalled), cu_ERROR_CONDWAIT_WAIT_FAILED);
    EXPECT_THAT(support::trace(), testing::HasSubstr("cu_Runnable_timedWait  -  src/cUtil/runnable:"));
    EXPECT_FALSE(signalled);
    EXPECT_EQ(cu_Runnable_unlock(runnable), 0U);
    waiter.join(); // another one's failure does not let it be forgotten
    for (const char* systemCall : {"pthread_cond_destroy", "pthread_mutex_destroy"}) {
        const support::Injection injection(systemCall, EBUSY);
        EXPECT_NE(cu_Runnable_delete(runnable.handle()), 0U);
        EXPECT_NE(runnable.get(), nullptr);
    }
}

TEST_F(Runnable, aFailingWakeIsReportedAndTheExecutionIsOverAllTheSame)
{
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    const std::jthread waiter([&] {
        bool signalled = false;
        EXPECT_EQ(cu_Runnable_timedWait(runnable, &past, &signalled), 0U); // looks again by itself
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // so that it waits, most likely; either way holds
    const support::Injection injection("pthread_cond_broadcast", EINVAL);
    const cu_ErrorCode code = cu_Runnable_unlock(runnable);
    EXPECT_EQ(code, injection.fired() != nullptr ? cu_ERROR_CONDWAIT_SIGNAL_FAILED : 0);
}

// --- Deletion at the moment at which the last execution ends ---------------------------------------------------------

// Whatever its owner gets done between two steps of the thread that ends the last execution: the owner deletes it from
// the n-th of these on. Before that it may have waited, or have tried to.
TEST(RunnableRace, whoEndsTheLastExecutionDoesNotTouchItAfterwards)
{
    enum class Before { nothing, wait, failedWait };
    constexpr std::chrono::milliseconds step(50);
    for (const Before before : {Before::nothing, Before::wait, Before::failedWait}) {
        unsigned calls = 1;
        for (unsigned nth = 1; nth <= calls; ++nth) {
            support::GraveAllocator graves;
            cu_Runnable* runnable = nullptr;
            Function function = [](void*) { return 0; };
            ASSERT_EQ(cu_Runnable_new(&runnable, call, &function, graves.get()), 0U);
            ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
            std::atomic<bool> isTime = false;
            std::atomic<bool> isOver = false;
            std::thread owner([&, mine = runnable]() mutable {
                if (before != Before::nothing) {
                    const cu_TimeValue past = {0, 1}; // the wait looks again by itself
                    bool signalled = false;
                    const unsigned failing = before == Before::failedWait ? 5 : ~0U; // after some 30 ms
                    const support::Injection injection("pthread_cond_timedwait", EINVAL, failing);
                    const cu_ErrorCode code = cu_Runnable_timedWait(mine, &past, &signalled);
                    EXPECT_TRUE(code == 0 || before == Before::failedWait);
                }
                EXPECT_TRUE(support::comesTrue([&] { return isTime.load(); }));
                EXPECT_EQ(cu_Runnable_delete(&mine), 0U);
                isOver = true;
            });
            std::this_thread::sleep_for(before == Before::nothing ? 0 * step : step / 3); // it waits, most likely
            {
                calls = 0;
                const support::Interlude interlude([&] {
                    isTime = ++calls >= nth;
                    support::comesTrue([&] { return isOver.load(); }, step);
                });
                execute(runnable);
            }
            isTime = true;
            owner.join();
        }
    }
}

// The same without steps that anybody could stand between: the owner comes a little earlier or later each time. Nobody
// may forget to wake it.
TEST(RunnableRace, deletionMeetsTheLastExecution)
{
    constexpr int threads = 2;
    const int rounds = support::scaled(1000);
    support::GraveAllocator graves;
    std::atomic<int> ended = 0;
    Function function = [&](void*) { return static_cast<uintptr_t>(++ended); };
    std::atomic<cu_Runnable*> runnables[threads] = {};
    std::atomic<bool> over = false;
    const auto pauseAt = [](int look) {
        look % 1000 != 0 ? cu::internal::relaxProcessor() : std::this_thread::yield();
    };
    std::vector<std::jthread> workers;
    for (auto& next : runnables)
        workers.emplace_back([&] {
            for (int look = 0; !over; ++look) {
                cu_Runnable* mine = next.exchange(nullptr);
                if (mine != nullptr) {
                    EXPECT_EQ(cu_Runnable_lock(mine), 0U);
                    execute(mine);
                    execute(mine);
                } else
                    pauseAt(look);
            }
        });
    for (int round = 0; round < rounds; ++round) {
        cu_Runnable* mine = nullptr;
        const int before = ended;
        ASSERT_EQ(cu_Runnable_new(&mine, call, &function, graves.get()), 0U);
        for (int thread = 0; thread < threads; ++thread)
            EXPECT_EQ(cu_Runnable_lock(mine), 0U);
        for (auto& next : runnables)
            next = mine;
        for (int look = 0; round % 8 != 0 && ended < before + 2 * threads - 1; ++look)
            pauseAt(look);
        for (int delay = round % 32; delay != 0; --delay)
            cu::internal::relaxProcessor();
        EXPECT_EQ(cu_Runnable_delete(&mine), 0U);
        EXPECT_EQ(ended, before + 2 * threads);
    }
    over = true;
}

} // namespace
