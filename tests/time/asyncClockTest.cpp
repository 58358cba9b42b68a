#include "internal/asyncClockLayout.h"
#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/time/time.h>

#include <atomic>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/time/asyncClock";
constexpr uint32_t milliSecond = 1000; // in microseconds

struct AsyncClock : testing::Test {
    uint64_t tick() const
    {
        uint64_t tick = ~uint64_t{0};
        EXPECT_EQ(cu_AsyncClock_getCurrentTick(clock, &tick), 0U);
        return tick;
    }

    // Ticks in this thread as long as the flag is set.
    uintptr_t runTicks()
    {
        uintptr_t result = ~uintptr_t{0};
        EXPECT_EQ(cu_Runnable_lock(cu_AsyncClock_getRunnable(clock)), 0U);
        EXPECT_EQ(cu_Runnable_execute(cu_AsyncClock_getRunnable(clock), &running, &result), 0U);
        return result;
    }

    void stop() { std::atomic_ref(running).store(false); }

    support::Made<cu_AsyncClock_new, cu_AsyncClock_delete> clock{milliSecond};
    bool running = true;
};

TEST_F(AsyncClock, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_AsyncClock_new, cu_AsyncClock_delete, milliSecond);
    cu_AsyncClock* none = nullptr;
    uint64_t tick = 0;
    uint32_t resolution = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, clock.get(), &tick, &resolution}), cu_AsyncClock_new,
                         cu_AsyncClock_wait, cu_AsyncClock_getCurrentTick, cu_AsyncClock_getResolution);
    EXPECT_NULLS_REFUSED(file, std::tuple{clock.handle()}, cu_AsyncClock_delete);
    EXPECT_REFUSED(cu_AsyncClock_new(&none, 0, nullptr), "cu_AsyncClock_new", file);
    EXPECT_EQ(support::failureOf([] { return cu_AsyncClock_getRunnable(nullptr) == nullptr ? 0U : ~0U; }).code, 0U);
}

TEST_F(AsyncClock, isNoFinerThanTheSystemsClock)
{
    cu_AsyncClock* fine = nullptr;
    const support::ClockReading precision({0, 4'000'900});
    for (const uint32_t resolution : {1U, 4000U})
        EXPECT_FAILURE(
            cu_AsyncClock_new(&fine, resolution, nullptr), cu_ERROR_COM_INVALID_ARGUMENT, "cu_AsyncClock_new", file,
            "The requested clock precision is not provided by your OS! Requested: " + std::to_string(resolution) +
                " us Max: 4000 us");
    const support::Made<cu_AsyncClock_new, cu_AsyncClock_delete> coarse(4001U);
    uint32_t got = 0;
    EXPECT_EQ(cu_AsyncClock_getResolution(coarse, &got), 0U);
    EXPECT_EQ(got, 4001U);
}

TEST_F(AsyncClock, beingLateDoesNotAddUpNorDo32BitsLimitTheCount)
{
    constexpr int64_t resolution = int64_t{milliSecond} * 1000;
    constexpr uint64_t ticks = 10000;
    clock->tick = (uint64_t{1} << 32) - ticks / 2;
    // Less than a tick late each time, and so late that ten ticks have to be made up each time.
    for (const int64_t oversleep : {resolution * 7 / 10, resolution * 105 / 10}) {
        const uint64_t first = tick();
        running = true;
        const std::jthread stopper([&, last = first + ticks] {
            EXPECT_EQ(cu_AsyncClock_wait(clock, last), 0U);
            stop();
        });
        const support::ClockReading reading({100, 0}, oversleep);
        EXPECT_EQ(runTicks(), 0U);
        EXPECT_GE(tick(), first + ticks);
        const timespec now = support::ClockReading::get();
        const int64_t elapsed = (int64_t{now.tv_sec} - 100) * 1'000'000'000 + now.tv_nsec;
        const int64_t behind = elapsed - static_cast<int64_t>(tick() - first) * resolution;
        EXPECT_GE(behind, 0);
        EXPECT_LE(behind, oversleep);
    }
    EXPECT_EQ(cu_AsyncClock_wait(clock, 6), 0U); // long past
}

TEST_F(AsyncClock, standsStillUntilItsRunnableRunsAndAfterItStopped)
{
    EXPECT_EQ(tick(), 0U);
    EXPECT_EQ(cu_AsyncClock_wait(clock, 0), 0U);
    for (const bool isStopped : {false, true}) {
        running = isStopped;
        clock->stop = isStopped;
        EXPECT_EQ(runTicks(), 0U);
        EXPECT_EQ(tick(), 0U);
    }
}

TEST_F(AsyncClock, wakesEveryWaiterAtItsTickAndNotBefore)
{
    const auto start = std::chrono::steady_clock::now();
    std::atomic<int> awake = 0;
    const auto wait = [&](uint64_t next) {
        EXPECT_EQ(cu_AsyncClock_wait(clock, next), 0U);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(next));
        if (++awake == 4)
            stop();
    };
    std::vector<std::jthread> waiters;
    for (const uint64_t next : {20U, 20U, 20U, 25U})
        waiters.emplace_back(wait, next);
    EXPECT_EQ(runTicks(), 0U);
}

TEST_F(AsyncClock, aFailingWaitIsPassedOnAndLeavesTheMutex)
{
    const auto fails = [this](cu_ErrorCode code) {
        EXPECT_EQ(cu_AsyncClock_wait(clock, 1), code);
        EXPECT_NE(support::trace().find("cu_AsyncClock_wait  -  src/cUtil/time/asyncClock:"), std::string::npos);
    };
    ASSERT_EQ(cu_Mutex_lock(clock->mutex), 0U);
    fails(cu_ERROR_MUTEX_LOCK_FAILED);
    EXPECT_EQ(cu_Mutex_unlock(clock->mutex), 0U);
    const support::Injection injection("pthread_cond_wait", EINVAL);
    fails(cu_ERROR_CONDWAIT_WAIT_FAILED);
    EXPECT_EQ(cu_Mutex_lock(clock->mutex), 0U);
    EXPECT_EQ(cu_Mutex_unlock(clock->mutex), 0U);
}

TEST_F(AsyncClock, aFailingSystemCallEndsTheTicksWithItsCode)
{
    const std::tuple<const char*, cu_ErrorCode, uint64_t> cases[] = {
        {"clock_gettime", cu_ERROR_TIME_GET_FAILED, 0},
        {"clock_nanosleep", cu_ERROR_SLEEP_FAILED, 0},
        {"pthread_cond_broadcast", cu_ERROR_CONDWAIT_SIGNAL_FAILED, 1}};
    for (const auto& [call, code, ticks] : cases) {
        const support::Injection injection(call, EINVAL);
        cu_Error_clear(cu_getErrorLocation());
        EXPECT_EQ(runTicks(), code);
        EXPECT_NE(support::trace().find("tickLoop  -  src/cUtil/time/asyncClock:"), std::string::npos);
        EXPECT_EQ(tick(), ticks);
    }
}

} // namespace
