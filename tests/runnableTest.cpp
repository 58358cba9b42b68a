#include "internal/spin.h"
#include "support/process.h"
#include "support/record.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/runnable.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/runnable";

uintptr_t call(void* argument, void* userData)
{
    return (*static_cast<std::function<uintptr_t(void*)>*>(userData))(argument);
}

double processorSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

class Runnable : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_Runnable_new(&runnable, call, &function, nullptr), 0U); }

    void TearDown() override
    {
        EXPECT_EQ(cu_Runnable_delete(&runnable), 0U);
        EXPECT_EQ(runnable, nullptr);
    }

    void execute()
    {
        uintptr_t result = 0;
        int argument = 0;
        EXPECT_EQ(cu_Runnable_execute(runnable, &argument, &result), 0U);
    }

    std::function<uintptr_t(void*)> function = [](void*) { return 0; };
    cu_Runnable* runnable = nullptr;
};

TEST_F(Runnable, constructorLeavesNothingBehind)
{
    support::sweep<cu_Runnable>(
        "cu_Runnable_new", [](auto** me, auto* allocator) { return cu_Runnable_new(me, call, nullptr, allocator); },
        cu_Runnable_delete);
}

TEST_F(Runnable, badArgumentsAreRefused)
{
    int argument = 0;
    bool signalled = false;
    uintptr_t result = 0;
    const cu_TimeValue deadline = {};
    cu_Runnable* none = nullptr;
    EXPECT_REFUSED(cu_Runnable_new(nullptr, call, nullptr, nullptr), "cu_Runnable_new", file);
    EXPECT_REFUSED(cu_Runnable_new(&runnable, call, nullptr, nullptr), "cu_Runnable_new", file);
    EXPECT_REFUSED(cu_Runnable_new(&none, nullptr, nullptr, nullptr), "cu_Runnable_new", file);
    EXPECT_REFUSED(cu_Runnable_lock(nullptr), "cu_Runnable_lock", file);
    EXPECT_REFUSED(cu_Runnable_unlock(nullptr), "cu_Runnable_unlock", file);
    EXPECT_REFUSED(cu_Runnable_execute(nullptr, &argument, &result), "cu_Runnable_execute", file);
    EXPECT_REFUSED(cu_Runnable_execute(runnable, nullptr, &result), "cu_Runnable_execute", file);
    EXPECT_REFUSED(cu_Runnable_execute(runnable, &argument, nullptr), "cu_Runnable_execute", file);
    EXPECT_REFUSED(cu_Runnable_wait(nullptr), "cu_Runnable_wait", file);
    EXPECT_REFUSED(cu_Runnable_timedWait(nullptr, &deadline, &signalled), "cu_Runnable_timedWait", file);
    EXPECT_REFUSED(cu_Runnable_timedWait(runnable, nullptr, &signalled), "cu_Runnable_timedWait", file);
    EXPECT_REFUSED(cu_Runnable_timedWait(runnable, &deadline, nullptr), "cu_Runnable_timedWait", file);
    EXPECT_REFUSED(cu_Runnable_delete(nullptr), "cu_Runnable_delete", file);
    EXPECT_REFUSED(cu_Runnable_delete(&none), "cu_Runnable_delete", file);
}

TEST_F(Runnable, anExecutionPassesTheArgumentAndAFullPointerBack)
{
    int argument = 0;
    uintptr_t result = 0;
    function = [](void* passed) { return UINTPTR_MAX - reinterpret_cast<uintptr_t>(passed); };
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    EXPECT_EQ(cu_Runnable_execute(runnable, &argument, &result), 0U);
    EXPECT_EQ(result, UINTPTR_MAX - reinterpret_cast<uintptr_t>(&argument));
}

TEST_F(Runnable, anEndWithoutAnAnnouncementIsRefusedAndChangesNothing)
{
    for (int round = 0; round < 2; ++round) {
        EXPECT_FAILURE(cu_Runnable_unlock(runnable), cu_ERROR_COM_INVARIANT, "cu_Runnable_unlock", file, "");
        EXPECT_EQ(cu_Runnable_wait(runnable), 0U);
    }
    bool hasRun = false;
    function = [&](void*) { return uintptr_t{hasRun = true}; };
    int argument = 0;
    uintptr_t result = 0;
    EXPECT_FAILURE(cu_Runnable_execute(runnable, &argument, &result), cu_ERROR_COM_INVARIANT, "cu_Runnable_unlock",
                   file, "");
    EXPECT_NE(support::trace().find("cu_Runnable_execute  -  src/cUtil/runnable:"), std::string::npos);
    EXPECT_TRUE(hasRun);
}

TEST_F(Runnable, everyWaiterStaysUntilTheLastExecutionEnds)
{
    const cu_TimeValue past = {0, 1};
    cu_TimeValue soon = {};
    ASSERT_EQ(cu_makeTimeoutMilliSecond(&soon, 5, CLOCK_MONOTONIC), 0U);
    const auto timedWait = [this](const cu_TimeValue& deadline) {
        bool signalled = false;
        EXPECT_EQ(cu_Runnable_timedWait(runnable, &deadline, &signalled), 0U);
        EXPECT_TRUE(signalled);
    };
    std::atomic<int> ended = 0;
    function = [&](void*) { return static_cast<uintptr_t>(++ended); };
    for (int execution = 0; execution < 3; ++execution)
        ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    std::vector<std::thread> waiters;
    for (int kind = 0; kind < 3; ++kind)
        waiters.emplace_back([&, kind] {
            if (kind == 0) {
                EXPECT_EQ(cu_Runnable_wait(runnable), 0U);
            } else
                timedWait(kind == 1 ? past : soon);
            EXPECT_EQ(ended, 3);
        });
    for (int execution = 0; execution < 3; ++execution) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        execute();
    }
    for (auto& waiter : waiters)
        waiter.join();
    timedWait(past);
}

TEST_F(Runnable, aWaitBeyondItsDeadlineLeavesTheProcessorToOthers)
{
    constexpr std::chrono::milliseconds length(400);
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    double spent = 0;
    std::chrono::steady_clock::duration took = {};
    std::atomic<bool> waits = false;
    std::thread waiter([&] {
        const auto start = std::chrono::steady_clock::now();
        const double before = processorSeconds();
        const cu_TimeValue past = {0, 1};
        bool signalled = false;
        waits = true;
        EXPECT_EQ(cu_Runnable_timedWait(runnable, &past, &signalled), 0U);
        spent = processorSeconds() - before;
        took = std::chrono::steady_clock::now() - start;
    });
    EXPECT_TRUE(support::comesTrue([&] { return waits.load(); }));
    std::this_thread::sleep_for(length);
    execute();
    waiter.join();
    EXPECT_GE(took, length / 2);
    EXPECT_LT(spent, 0.1 * std::chrono::duration<double>(length).count());
}

TEST_F(Runnable, failedWaitsAreReportedAndDoNotKeepTheRunnableLocked)
{
    bool signalled = false;
    const cu_TimeValue invalid = {0, 1'000'000'000};
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    EXPECT_EQ(cu_Runnable_timedWait(runnable, &invalid, &signalled), cu_ERROR_CONDWAIT_WAIT_FAILED);
    EXPECT_NE(support::trace().find("cu_Runnable_timedWait  -  src/cUtil/runnable:"), std::string::npos);
    EXPECT_FALSE(signalled);
    {
        const support::Injection injection("pthread_cond_wait", EINVAL);
        EXPECT_EQ(cu_Runnable_delete(&runnable), cu_ERROR_CONDWAIT_WAIT_FAILED);
        EXPECT_NE(runnable, nullptr);
        for (const char* passedOnBy : {"cu_Runnable_wait", "cu_Runnable_delete"})
            EXPECT_NE(support::trace().find(std::string(passedOnBy) + "  -  src/cUtil/runnable:"), std::string::npos);
    }
    std::thread waiter([&] { EXPECT_EQ(cu_Runnable_wait(runnable), 0U); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // so that it waits, most likely; either way holds
    EXPECT_EQ(cu_Runnable_timedWait(runnable, &invalid, &signalled), cu_ERROR_CONDWAIT_WAIT_FAILED);
    EXPECT_EQ(cu_Runnable_unlock(runnable), 0U);
    waiter.join(); // another one's failure does not let it be forgotten
    for (const char* call : {"pthread_cond_destroy", "pthread_mutex_destroy"}) {
        const support::Injection injection(call, EBUSY);
        EXPECT_NE(cu_Runnable_delete(&runnable), 0U);
        EXPECT_NE(runnable, nullptr);
    }
}

TEST_F(Runnable, aFailingWakeIsReportedAndTheExecutionIsOverAllTheSame)
{
    ASSERT_EQ(cu_Runnable_lock(runnable), 0U);
    std::thread waiter([&] {
        const cu_TimeValue past = {0, 1};
        bool signalled = false;
        EXPECT_EQ(cu_Runnable_timedWait(runnable, &past, &signalled), 0U); // looks again by itself
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // so that it waits, most likely; either way holds
    {
        const support::Injection injection("pthread_cond_broadcast", EINVAL);
        const cu_ErrorCode code = cu_Runnable_unlock(runnable);
        EXPECT_EQ(code, injection.fired() != nullptr ? cu_ERROR_CONDWAIT_SIGNAL_FAILED : 0);
    }
    waiter.join();
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
            std::function<uintptr_t(void*)> function = [](void*) { return 0; };
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
                uintptr_t result = 0;
                int argument = 0;
                EXPECT_EQ(cu_Runnable_execute(runnable, &argument, &result), 0U);
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
    std::function<uintptr_t(void*)> function = [&](void*) { return static_cast<uintptr_t>(++ended); };
    std::atomic<cu_Runnable*> runnables[threads] = {};
    std::atomic<bool> over = false;
    const auto pauseAt = [](int look) {
        look % 1000 != 0 ? cu::internal::relaxProcessor() : std::this_thread::yield();
    };
    std::vector<std::thread> workers;
    for (auto& next : runnables)
        workers.emplace_back([&] {
            uintptr_t result = 0;
            int argument = 0;
            for (int look = 0; !over; ++look) {
                cu_Runnable* mine = next.exchange(nullptr);
                if (mine != nullptr) {
                    EXPECT_EQ(cu_Runnable_lock(mine), 0U);
                    EXPECT_EQ(cu_Runnable_execute(mine, &argument, &result), 0U);
                    EXPECT_EQ(cu_Runnable_execute(mine, &argument, &result), 0U);
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
    for (auto& worker : workers)
        worker.join();
}

} // namespace
