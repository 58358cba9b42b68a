#include <cUtil/spinLock.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cerrno>
#include <pthread.h>

struct cu_SpinLock {
    cu_allocator* allocator;
    pthread_spinlock_t lock;
};

cu_ErrorCode cu_SpinLock_new(cu_SpinLock** me, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_SpinLock> object;
    CU_TRY(object.allocate(allocator));
    if (const int error = pthread_spin_init(&object->lock, PTHREAD_PROCESS_PRIVATE); error != 0)
        return CU_REPORT(cu_ERROR_SPINLOCK_INIT_FAILED, error, nullptr);
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_SpinLock_delete(cu_SpinLock** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    // Compatibility: the code is that of a condition, not cu_ERROR_SPINLOCK_FREE_FAILED.
    if (const int error = pthread_spin_destroy(&(*me)->lock); error != 0)
        return CU_REPORT(cu_ERROR_CONDWAIT_FREE_FAILED, error, nullptr);
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_SpinLock_lock(cu_SpinLock* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_spin_lock(&me->lock); error != 0)
        return CU_REPORT(cu_ERROR_SPINLOCK_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_SpinLock_tryLock(cu_SpinLock* me, bool* locked)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(locked != nullptr);

    *locked = true;
    const int error = pthread_spin_trylock(&me->lock);
    if (error == EBUSY)
        *locked = false;
    else if (error != 0)
        return CU_REPORT(cu_ERROR_SPINLOCK_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_SpinLock_unlock(cu_SpinLock* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = pthread_spin_unlock(&me->lock); error != 0)
        return CU_REPORT(cu_ERROR_SPINLOCK_UNLOCK_FAILED, error, nullptr);
    return 0;
}
