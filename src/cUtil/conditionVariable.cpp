#include <cUtil/conditionVariable.h>

#include "internal/monotonicCondition.h"
#include "internal/owned.h"
#include "internal/report.h"

#include <atomic>
#include <cerrno>
#include <ctime>

struct cu_ConditionVariable {
    cu_allocator* allocator;
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    std::atomic<uint32_t> waiters;  // threads within a wait: giving itself up here is the last that each does
    std::atomic<bool> isLeftLocked; // by a wait that has timed out
};

namespace
{

// How often a deletion looks whether the waiters have left: 100 µs.
constexpr timespec leavePeriod = {0, 100'000};

void leave(cu_ConditionVariable* me)
{
    me->waiters.fetch_sub(1, std::memory_order_release); // what this thread did here is over
}

// For a thread that is cancelled while it waits. It has the mutex then.
void leaveUnlocked(void* me)
{
    auto* object = static_cast<cu_ConditionVariable*>(me);
    pthread_mutex_unlock(&object->mutex);
    leave(object);
}

// Without a deadline until a signal. The object may be gone on return.
int waitInside(cu_ConditionVariable* me, const timespec* deadline, bool* signalled)
{
    me->waiters.fetch_add(1, std::memory_order_relaxed);
    int error = pthread_mutex_lock(&me->mutex);
    if (error == 0) {
        pthread_cleanup_push(leaveUnlocked, me);
        error = deadline != nullptr ? pthread_cond_timedwait(&me->condition, &me->mutex, deadline)
                                    : pthread_cond_wait(&me->condition, &me->mutex);
        pthread_cleanup_pop(0);
        if (deadline != nullptr && error == ETIMEDOUT) {
            // Compatibility: the mutex stays held by the thread that has timed out.
            *signalled = false;
            error = 0;
            me->isLeftLocked.store(true, std::memory_order_relaxed);
        } else {
            const int last = pthread_mutex_unlock(&me->mutex);
            error = error != 0 ? error : last;
        }
    }
    leave(me);
    return error;
}

// A thread on its way into a wait misses the broadcast, and one on its way out may be stopped by the mutex that another
// one has left locked or leaves locked at this very moment. The system's default mutex does not ask who unlocks it.
void seeWaitersOut(cu_ConditionVariable* me)
{
    for (;;) {
        const bool areOut = me->waiters.load(std::memory_order_acquire) == 0;
        if (me->isLeftLocked.exchange(false, std::memory_order_relaxed))
            pthread_mutex_unlock(&me->mutex);
        if (areOut)
            return;
        nanosleep(&leavePeriod, nullptr);
        pthread_cond_broadcast(&me->condition);
    }
}

} // namespace

cu_ErrorCode cu_ConditionVariable_new(cu_ConditionVariable** me, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_ConditionVariable> object;
    CU_TRY(object.allocate(allocator));
    if (const auto [error, call] = internal::makeMonotonicCondition(&object->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_INIT_FAILED, error, "%s failed: [%d] %s", call, error,
                         internal::SystemErrorText(error).get());
    if (const int error = pthread_mutex_init(&object->mutex, nullptr); error != 0) {
        pthread_cond_destroy(&object->condition);
        return CU_REPORT(cu_ERROR_CONDWAIT_INIT_FAILED, error,
                         "pthread_mutex_init( &(*me)->mutex, NULL ) failed: [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_ConditionVariable_delete(cu_ConditionVariable** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    CU_TRY(cu_ConditionVariable_broadcast(*me));
    seeWaitersOut(*me);
    pthread_cond_destroy(&(*me)->condition);
    pthread_mutex_destroy(&(*me)->mutex);
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_ConditionVariable_signal(cu_ConditionVariable* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_cond_signal(&me->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_SIGNAL_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_ConditionVariable_broadcast(cu_ConditionVariable* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_cond_broadcast(&me->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_SIGNAL_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_ConditionVariable_wait(cu_ConditionVariable* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = waitInside(me, nullptr, nullptr); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_WAIT_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_ConditionVariable_timedWait(cu_ConditionVariable* me, const cu_TimeValue* deadline, bool* signalled)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(signalled != nullptr);

    *signalled = true;
    if (const int error = waitInside(me, deadline, signalled); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_WAIT_FAILED, error, nullptr);
    return 0;
}
