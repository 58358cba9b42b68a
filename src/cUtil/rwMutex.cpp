#include <cUtil/rwMutex.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cerrno>
#include <pthread.h>

struct cu_RWMutex {
    cu_allocator* allocator;
    pthread_rwlock_t lock;
};

cu_ErrorCode cu_RWMutex_new(cu_RWMutex** me, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_RWMutex> object;
    CU_TRY(object.allocate(allocator));
    if (const int error = pthread_rwlock_init(&object->lock, nullptr); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_INIT_FAILED, error, nullptr);
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_RWMutex_delete(cu_RWMutex** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    if (const int error = pthread_rwlock_destroy(&(*me)->lock); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_FREE_FAILED, error, nullptr);
    CU_TRY(internal::freeObject(me));
    return 0;
}

// Compatibility: a thread that already holds the lock is told that it got it.
cu_ErrorCode cu_RWMutex_readLock(cu_RWMutex* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_rwlock_rdlock(&me->lock); error != 0 && error != EDEADLK)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

// Compatibility: as above.
cu_ErrorCode cu_RWMutex_writeLock(cu_RWMutex* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_rwlock_wrlock(&me->lock); error != 0 && error != EDEADLK)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_RWMutex_tryReadLock(cu_RWMutex* me, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_rwlock_tryrdlock(&me->lock);
    if (error == EBUSY)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_RWMutex_tryWriteLock(cu_RWMutex* me, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_rwlock_trywrlock(&me->lock);
    if (error == EBUSY)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_RWMutex_timedReadLock(cu_RWMutex* me, const cu_TimeValue* deadline, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_rwlock_timedrdlock(&me->lock, deadline);
    if (error == ETIMEDOUT)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_RWMutex_timedWriteLock(cu_RWMutex* me, const cu_TimeValue* deadline, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_rwlock_timedwrlock(&me->lock, deadline);
    if (error == ETIMEDOUT)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_RWMutex_unlock(cu_RWMutex* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_rwlock_unlock(&me->lock); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_UNLOCK_FAILED, error, nullptr);
    return 0;
}
