#include "internal/mutexLayout.h"
#include "internal/owned.h"
#include "internal/report.h"
#include "internal/spin.h"

#include <cUtil/atomicLock.h>

#include <cerrno>

namespace
{

constinit cu_Mutex atomicLock = {nullptr, PTHREAD_MUTEX_INITIALIZER};

int makeInheriting(pthread_mutex_t* mutex, int type)
{
    pthread_mutexattr_t attributes;
    if (const int error = pthread_mutexattr_init(&attributes); error != 0)
        return error;
    int error = pthread_mutexattr_settype(&attributes, type);
    if (error == 0)
        error = pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    if (error == 0)
        error = pthread_mutex_init(mutex, &attributes);
    const bool isMade = error == 0;
    if (const int last = pthread_mutexattr_destroy(&attributes); isMade && last != 0) {
        pthread_mutex_destroy(mutex);
        error = last;
    }
    return error;
}

// A thread that sleeps for a priority-inheriting mutex costs its owner a system call, too, and gets it long after the
// owner could have had it again. Only a busy mutex is worth another look; `sleep` decides about everything else.
template <typename Sleep>
[[gnu::noinline]] int lockBusy(pthread_mutex_t* mutex, internal::Spin spin, Sleep sleep)
{
    int error = EBUSY;
    if (spin.spinUntil([&] { return (error = pthread_mutex_trylock(mutex)) != EBUSY; }) && error == 0)
        return 0;
    spin.asleep();
    error = sleep();
    spin.awake();
    return error;
}

} // namespace

cu_ErrorCode cu_Mutex_new(cu_Mutex** me, bool recursive, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_Mutex> object;
    CU_TRY(object.allocate(allocator));
    const int type = recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK;
    if (const int error = makeInheriting(&object->mutex, type); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_INIT_FAILED, error, nullptr);
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_Mutex_delete(cu_Mutex** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    if (const int error = pthread_mutex_destroy(&(*me)->mutex); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_FREE_FAILED, error, nullptr);
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_Mutex_lock(cu_Mutex* me)
{
    CU_REQUIRE(me != nullptr);

    int error = pthread_mutex_trylock(&me->mutex);
    if (error == 0) [[likely]]
        return 0;
    const auto sleep = [=] { return pthread_mutex_lock(&me->mutex); };
    error = error == EBUSY ? lockBusy(&me->mutex, internal::Spin(), sleep) : sleep();
    if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_Mutex_tryLock(cu_Mutex* me, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_mutex_trylock(&me->mutex);
    if (error == EBUSY || error == EDEADLK)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_Mutex_timedLock(cu_Mutex* me, const cu_TimeValue* deadline, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    int error = pthread_mutex_trylock(&me->mutex);
    if (error == 0) [[likely]]
        return 0;
    const auto sleep = [=] { return pthread_mutex_timedlock(&me->mutex, deadline); };
    error = error == EBUSY ? lockBusy(&me->mutex, internal::Spin(*deadline), sleep) : sleep();
    if (error == ETIMEDOUT || error == EBUSY)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_Mutex_unlock(cu_Mutex* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_mutex_unlock(&me->mutex); error != 0) [[unlikely]]
        return CU_REPORT(cu_ERROR_MUTEX_UNLOCK_FAILED, error, nullptr);
    return 0;
}

cu_Mutex* cu_atomicLock(void)
{
    return &atomicLock;
}
