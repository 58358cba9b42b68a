#include <cUtil/runnable.h>

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"
#include "internal/spin.h"

#include <cUtil/conditionWait.h>
#include <cUtil/mutex.h>

#include <atomic>

struct cu_Runnable {
    cu_allocator* allocator;
    cu_RunnableFunction function;
    void* userData;
    std::atomic<uint32_t> pending; // with the bit below
    cu_Mutex* mutex;
    cu_ConditionWait* conditionWait;
    uint32_t waiters; // under the mutex
};

namespace
{

// Set in the pending count while somebody waits. Whoever ends the last execution then does so under the mutex, and the
// waiter cannot leave before that mutex is free again; otherwise the step of the count to 0 is the last access.
constexpr uint32_t awaited = 0x8000'0000;

// How often a wait looks again once its deadline has passed.
constexpr uint32_t pollPeriod = 10; // milliseconds

// Sees everything that the ended executions did.
uint32_t countOf(const cu_Runnable* me)
{
    return me->pending.load(std::memory_order_acquire) & ~awaited;
}

// Waits by `waitOnce` while executions are pending. Does without the mutex where the last one ends unawaited, so that
// its step of the count was its last access.
template <typename WaitOnce>
cu_ErrorCode waitForLast(cu_Runnable* me, WaitOnce waitOnce)
{
    const auto endedUnawaited = [me] { return me->pending.load(std::memory_order_acquire) == 0; };
    if (endedUnawaited())
        return 0;
    internal::Spin spin;
    if (spin.spinUntil(endedUnawaited))
        return 0;
    if (cu_ErrorCode code = cu_Mutex_lock(me->mutex); code != 0)
        return code;
    CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
    ++me->waiters;
    // The mutex orders this against the last execution's end.
    me->pending.fetch_or(awaited, std::memory_order_relaxed);
    cu_ErrorCode code = 0;
    spin.asleep();
    while (code == 0 && countOf(me) != 0)
        code = waitOnce();
    spin.awake();
    if (--me->waiters == 0)
        me->pending.fetch_and(~awaited, std::memory_order_relaxed);
    if (code != 0)
        return code;
    unlock.dismiss();
    return cu_Mutex_unlock(me->mutex);
}

} // namespace

cu_ErrorCode cu_Runnable_new(cu_Runnable** me, cu_RunnableFunction function, void* userData, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(function != nullptr);

    internal::Owned<cu_Runnable> object;
    CU_TRY(object.allocate(allocator));
    object->function = function;
    object->userData = userData;
    CU_TRY(cu_Mutex_new(&object->mutex, false, object->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&object->mutex));
    CU_TRY(cu_ConditionWait_new(&object->conditionWait, object->allocator));
    mutex.dismiss();
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_Runnable_lock(cu_Runnable* me)
{
    CU_REQUIRE(me != nullptr);

    // What hands the execution over orders it before its end.
    me->pending.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

cu_ErrorCode cu_Runnable_unlock(cu_Runnable* me)
{
    CU_REQUIRE(me != nullptr);

    for (;;) {
        uint32_t pending = me->pending.load(std::memory_order_relaxed);
        while (pending != (awaited | 1)) {
            if ((pending & ~awaited) == 0)
                return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
            // Releases what the execution did to whoever sees the count at 0.
            if (me->pending.compare_exchange_weak(pending, pending - 1, std::memory_order_release,
                                                  std::memory_order_relaxed))
                return 0;
        }

        CU_TRY(cu_Mutex_lock(me->mutex));
        CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
        // Another execution may have been announced meanwhile, and then this is no longer the last; or those who waited
        // have failed to, and whoever waits now may see the count alone.
        const bool isLast =
            me->pending.compare_exchange_strong(pending, awaited, std::memory_order_release, std::memory_order_relaxed);
        if (isLast)
            CU_TRY(cu_ConditionWait_broadcast(me->conditionWait));
        unlock.dismiss();
        CU_TRY(cu_Mutex_unlock(me->mutex));
        if (isLast)
            return 0;
    }
}

cu_ErrorCode cu_Runnable_execute(cu_Runnable* me, void* argument, uintptr_t* result)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(argument != nullptr);
    CU_REQUIRE(result != nullptr);

    *result = me->function(argument, me->userData);
    CU_TRY(cu_Runnable_unlock(me));
    return 0;
}

cu_ErrorCode cu_Runnable_wait(cu_Runnable* me)
{
    CU_REQUIRE(me != nullptr);

    CU_TRY(waitForLast(me, [me] { return cu_ConditionWait_wait(me->conditionWait, me->mutex); }));
    return 0;
}

cu_ErrorCode cu_Runnable_timedWait(cu_Runnable* me, const cu_TimeValue* deadline, bool* signalled)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(signalled != nullptr);

    // Compatibility: the deadline does not end the wait, and the flag always tells that the last execution ended.
    cu_TimeValue next = *deadline;
    CU_TRY(waitForLast(me, [me, &next] {
        bool inTime = true;
        const cu_ErrorCode code = cu_ConditionWait_timedWait(me->conditionWait, me->mutex, &next, &inTime);
        return code != 0 || inTime ? code : cu_makeTimeoutMilliSecond(&next, pollPeriod, CLOCK_MONOTONIC);
    }));
    *signalled = true;
    return 0;
}

cu_ErrorCode cu_Runnable_delete(cu_Runnable** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_Runnable* object = *me;
    CU_TRY(cu_Runnable_wait(object));
    if (object->conditionWait != nullptr) // gone if an earlier call failed after it
        CU_TRY(cu_ConditionWait_delete(&object->conditionWait));
    CU_TRY(cu_Mutex_delete(&object->mutex));
    CU_TRY(internal::freeObject(me));
    return 0;
}
