#include <cUtil/time/asyncClock.h>

#include "internal/asyncClockLayout.h"
#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/thread.h>
#include <cUtil/time/time.h>

// 32-bit processors included.
static_assert(std::atomic<uint64_t>::is_always_lock_free);

namespace
{

// What the tick's thread did before the tick is seen by whoever sees the tick.
uint64_t tickOf(const cu_AsyncClock* clock)
{
    return clock->tick.load(std::memory_order_acquire);
}

bool isFinerThan(uint32_t microSeconds, const cu_TimeValue& precision)
{
    const int64_t seconds = microSeconds / cu_USEC_PER_SEC;
    const int64_t nanoSeconds = int64_t{microSeconds % cu_USEC_PER_SEC} * cu_NSEC_PER_USEC;
    return seconds < precision.tv_sec || (seconds == precision.tv_sec && nanoSeconds < precision.tv_nsec);
}

uintptr_t tickLoop(void* runningFlag, void* userData)
{
    CU_REQUIRE(runningFlag != nullptr);
    CU_REQUIRE(userData != nullptr);

    auto* clock = static_cast<cu_AsyncClock*>(userData);
    cu_TimeValue deadline = {};
    CU_TRY(cu_makeTimeoutMicroSecond(&deadline, clock->resolution, CLOCK_MONOTONIC));
    while (cu_Thread_isRunning(runningFlag)) {
        if (clock->stop.load(std::memory_order_acquire))
            return 0;
        CU_TRY(cu_sleepAbsolute(&deadline, CLOCK_MONOTONIC));
        clock->tick.fetch_add(1, std::memory_order_release);
        CU_TRY(cu_ConditionWait_broadcast(clock->conditionWait));
        // From the deadline, not from now: being late does not add up.
        CU_TRY(cu_addMicroSeconds(&deadline, clock->resolution));
    }
    return 0;
}

} // namespace

cu_ErrorCode cu_AsyncClock_new(cu_AsyncClock** clock, uint32_t resolution, cu_allocator* allocator)
{
    CU_REQUIRE(clock != nullptr);
    CU_REQUIRE(*clock == nullptr);
    CU_REQUIRE(resolution != 0);

    cu_TimeValue precision = {};
    CU_TRY(cu_getClockPrecision(&precision, CLOCK_MONOTONIC));
    if (isFinerThan(resolution, precision))
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0,
                         "The requested clock precision is not provided by your OS! Requested: %u us Max: %u us",
                         resolution, static_cast<uint32_t>(precision.tv_nsec) / cu_NSEC_PER_USEC);

    internal::Owned<cu_AsyncClock> object;
    CU_TRY(object.allocate(allocator));
    object->resolution = resolution;
    CU_TRY(cu_Runnable_new(&object->runnable, tickLoop, object.get(), object->allocator));
    CU_ROLLBACK(runnable, cu_Runnable_delete(&object->runnable));
    CU_TRY(cu_Mutex_new(&object->mutex, false, object->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&object->mutex));
    CU_TRY(cu_ConditionWait_new(&object->conditionWait, object->allocator));
    mutex.dismiss();
    runnable.dismiss();
    *clock = object.release();
    return 0;
}

cu_Runnable* cu_AsyncClock_getRunnable(cu_AsyncClock* clock)
{
    return clock != nullptr ? clock->runnable : nullptr;
}

cu_ErrorCode cu_AsyncClock_wait(cu_AsyncClock* clock, uint64_t tick)
{
    CU_REQUIRE(clock != nullptr);

    // Compatibility: a tick between this test and the wait is not noticed before the next one.
    while (tickOf(clock) < tick) {
        CU_TRY(cu_Mutex_lock(clock->mutex));
        CU_ROLLBACK(unlock, cu_Mutex_unlock(clock->mutex));
        CU_TRY(cu_ConditionWait_wait(clock->conditionWait, clock->mutex));
        unlock.dismiss();
        CU_TRY(cu_Mutex_unlock(clock->mutex));
    }
    return 0;
}

cu_ErrorCode cu_AsyncClock_getCurrentTick(const cu_AsyncClock* clock, uint64_t* tick)
{
    CU_REQUIRE(clock != nullptr);
    CU_REQUIRE(tick != nullptr);

    *tick = tickOf(clock);
    return 0;
}

cu_ErrorCode cu_AsyncClock_getResolution(const cu_AsyncClock* clock, uint32_t* resolution)
{
    CU_REQUIRE(clock != nullptr);
    CU_REQUIRE(resolution != nullptr);

    *resolution = clock->resolution;
    return 0;
}

cu_ErrorCode cu_AsyncClock_delete(cu_AsyncClock** clock)
{
    CU_REQUIRE(clock != nullptr);
    CU_REQUIRE(*clock != nullptr);

    cu_AsyncClock* object = *clock;
    if (object->conditionWait != nullptr) // gone, like the mutex, if an earlier call failed after it
        CU_TRY(cu_ConditionWait_delete(&object->conditionWait));
    if (object->mutex != nullptr)
        CU_TRY(cu_Mutex_delete(&object->mutex));
    CU_TRY(cu_Runnable_delete(&object->runnable));
    CU_TRY(internal::freeObject(clock));
    return 0;
}
