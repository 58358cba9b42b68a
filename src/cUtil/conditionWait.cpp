#include <cUtil/conditionWait.h>

#include "internal/monotonicCondition.h"
#include "internal/mutexLayout.h"
#include "internal/owned.h"
#include "internal/report.h"

#include <cerrno>

struct cu_ConditionWait {
    cu_allocator* allocator;
    pthread_cond_t condition;
};

cu_ErrorCode cu_ConditionWait_new(cu_ConditionWait** me, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_ConditionWait> object;
    CU_TRY(object.allocate(allocator));
    if (const auto [error, call] = internal::makeMonotonicCondition(&object->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_INIT_FAILED, error, "%s failed: [%d] %s", call, error,
                         internal::SystemErrorText(error).get());
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_ConditionWait_delete(cu_ConditionWait** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    CU_TRY(cu_ConditionWait_broadcast(*me));
    // The system's call returns when the last waiter is out of the condition.
    if (const int error = pthread_cond_destroy(&(*me)->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_FREE_FAILED, error, "pthread_cond_destroy( &(*me)->cond ) failed: [%d] %s",
                         error, internal::SystemErrorText(error).get());
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_ConditionWait_signal(cu_ConditionWait* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_cond_signal(&me->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_SIGNAL_FAILED, error, "pthread_cond_signal( &me->cond ) failed: [%d] %s",
                         error, internal::SystemErrorText(error).get());
    return 0;
}

cu_ErrorCode cu_ConditionWait_broadcast(cu_ConditionWait* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_cond_broadcast(&me->condition); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_SIGNAL_FAILED, error, "pthread_cond_broadcast( &me->cond ) failed: [%d] %s",
                         error, internal::SystemErrorText(error).get());
    return 0;
}

// In both waits the object may be gone once the system's call has returned.

cu_ErrorCode cu_ConditionWait_wait(cu_ConditionWait* me, cu_Mutex* mutex)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(mutex != nullptr);

    if (const int error = pthread_cond_wait(&me->condition, &mutex->mutex); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_WAIT_FAILED, error,
                         "pthread_cond_wait( &me->cond, &mutex->mutex ) failed: [%d] %s", error,
                         internal::SystemErrorText(error).get());
    return 0;
}

cu_ErrorCode cu_ConditionWait_timedWait(cu_ConditionWait* me, cu_Mutex* mutex, const cu_TimeValue* deadline,
                                        bool* signalled)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(mutex != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(signalled != nullptr);

    *signalled = true;
    const int error = pthread_cond_timedwait(&me->condition, &mutex->mutex, deadline);
    if (error == ETIMEDOUT)
        *signalled = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_WAIT_FAILED, error, nullptr);
    return 0;
}
